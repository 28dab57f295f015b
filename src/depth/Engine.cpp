// SPDX-License-Identifier: Apache-2.0
// The chain from two eyes to range: what is prepared once, and the steps of a frame up to refined disparities.
#include "src/depth/Engine.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "src/depth/Prepare.hpp"
#include "src/depth/Tasks.hpp"

namespace stereo {

using namespace depth;

namespace {

constexpr int stripRows = 16;
constexpr int matchRows = 200;  // of a strip that is matched by itself: fixed, since the strips show in the result
constexpr int warmRows = 16;    // before a strip
constexpr int refinePasses = 2;
constexpr int rivalStep = 4;              // pixels between samples of texture that repeats
constexpr int rivalShare = 66;            // percent of them
constexpr double columnsPerDegree = 2.6;  // of the grid: finer ones show the eyes' pixels, not more detail

[[noreturn]] void refuse(const char* why) { CV_Error(cv::Error::StsBadArg, why); }

WideDepthOptions checked(const WideDepthOptions& options) {
  if (options.size.width < 32 || options.size.height < 32 || options.size.width > 4096 || options.size.height > 4096) {
    refuse("the view must have 32 x 32 to 4096 x 4096 pixels");
  }
  if (!(options.horizontalField > 0.0 && options.horizontalField <= 180.0) ||
      !(options.verticalField > 0.0 && options.verticalField <= 180.0)) {
    refuse("the view's fields must be above 0 and at most 180 degrees");
  }
  if (!(options.nearest > 0.0) || !std::isfinite(options.nearest)) {
    refuse("the nearest range must be above 0");
  }
  if (!(options.farthest > options.nearest) || !std::isfinite(options.farthest)) {
    refuse("the farthest range must be above the nearest");
  }
  if (options.threads < 0) {
    refuse("the number of threads must not be negative");
  }
  return options;
}

int gridFactor(const ViewGrid& view) {
  const double perDegree = CV_PI / 180.0 / view.columnStep;
  const int wanted = static_cast<int>(std::lround(perDegree / columnsPerDegree));
  // At least as many pixels as the windows need.
  return std::clamp(wanted, 1, std::max(1, std::min(view.width, view.height) / 32));
}

MatchSize matchSize(const ViewGrid& grid, double baseline, double nearest) {
  // A few columns more than the nearest thing's parallax, so that it isn't at the end of the search.
  const double columns = largestParallax(baseline, nearest) / grid.columnStep - MatchSize::least + 2;
  MatchSize size;
  size.width = grid.width;
  size.height = grid.height;
  size.disparities = std::clamp((static_cast<int>(std::min(columns, 256.0)) + 31) / 32 * 32, 32, 256);
  return size;
}

}  // namespace

WideDepth::Engine::Engine(const WideDepthCalibration& calibration, cv::Size eye, const WideDepthOptions& options)
    : m_options(checked(options)),
      m_eyeSize(eye),
      m_eyes(eyePair(calibration, eye)),
      m_view(ViewGrid::of(m_options)),
      m_factor(gridFactor(m_view)),
      m_grid(m_view.coarser(m_factor)),
      m_size(matchSize(m_grid, m_eyes.baseline, options.nearest)),
      m_ranges(m_view, m_eyes.baseline, options.nearest, options.farthest),
      m_rays(unitRays(m_view)),
      m_speckFinder(m_grid.width, m_grid.height),
      m_repeats(m_size, rivalStep, rivalShare, 0),
      m_nearGuard(m_size),
      m_rowFit(m_grid, m_eyes.eyes[1]) {
  const int W = m_size.width;
  const int H = m_size.height;
  const std::size_t total = at(H);
  const auto rightTotal = static_cast<std::size_t>(m_size.rightWidth()) * static_cast<std::size_t>(H);
  const std::int32_t outside = eye.width * eye.height;
  buildSampleMap(m_eyes.eyes[0], eye, m_grid.finerColumns(), 0, 2 * W, eye.width, outside, threads(), m_left.map);
  buildSampleMap(m_eyes.eyes[0], eye, m_view, 0, m_view.width, eye.width, outside, threads(), m_viewMap);
  buildRightMap();
  for (Eye* const one : {&m_left, &m_right}) {
    one->gray.assign(static_cast<std::size_t>(eye.width) * static_cast<std::size_t>(eye.height + 3), 0);
    one->samples.assign(one->map.offset.size(), 0);
    const std::size_t pixels = one == &m_left ? total : rightTotal;
    one->halves.assign(pixels, 0);
    for (auto& plane : one->census) {
      plane.assign(pixels + 64, 0);
    }
  }
  m_leftSeen.resize(total);
  for (std::size_t k = 0; k < total; ++k) {
    m_leftSeen[k] = m_left.map.seen[2 * k] & m_left.map.seen[2 * k + 1];
  }
  m_besidePenalty.assign(total, 0);
  m_abovePenalty.assign(total, 0);
  const int strips = std::max(1, (H + matchRows / 2) / matchRows);
  m_scratch.reserve(static_cast<std::size_t>(strips));
  for (int k = 0; k < strips; ++k) {
    m_scratch.emplace_back(m_size);
  }
  m_matched.assign(total, 0);
  m_flags.assign(total, 0);
  m_disparity.create(W, H, noDisparity);
  m_evidence.create(W, H, noDisparity);
  m_terms.create(W, H);
  m_refined.create(W, H);
  m_spareWeight.create(W, H, 0.0F);
  if (m_options.fuse) {
    m_pastDisparity.create(W, H, noDisparity);
    m_pastWeight.create(W, H, 0.0F);
  }
  for (auto* image : {&m_marks, &m_wideMarks, &m_repeatMarks, &m_states}) {
    image->assign(total, 0);
  }
}

void WideDepth::Engine::buildRightMap() {
  buildSampleMap(m_rowFit.corrected(), m_eyeSize, m_grid.finerColumns(), -2 * m_size.disparities,
                 2 * m_size.rightWidth(), m_eyeSize.width, m_eyeSize.width * m_eyeSize.height, threads(), m_right.map);
}

int WideDepth::Engine::threads() const {
  const int available = std::max(cv::getNumThreads(), 1);
  return m_options.threads == 0 ? available : std::min(m_options.threads, available);
}

void WideDepth::Engine::checkEyes(const cv::Mat& leftEye, const cv::Mat& rightEye) const {
  for (const cv::Mat* const eye : {&leftEye, &rightEye}) {
    if (eye->empty() || eye->dims != 2) {
      refuse("an eye's image is empty");
    }
    if (eye->type() != CV_8UC3 && eye->type() != CV_8UC1) {
      refuse("an eye's image must be CV_8UC3 or CV_8UC1");
    }
    if (eye->size() != m_eyeSize) {
      CV_Error(cv::Error::StsUnmatchedSizes, cv::format("an eye's image must have %d x %d pixels; got %d x %d",
                                                        m_eyeSize.width, m_eyeSize.height, eye->cols, eye->rows));
    }
  }
  if (leftEye.type() != rightEye.type()) {
    refuse("both eyes' images must have the same type");
  }
}

void WideDepth::Engine::compute(const cv::Mat& leftEye, const cv::Mat& rightEye, WideDepthImage& out) {
  checkEyes(leftEye, rightEye);
  prepare(leftEye, rightEye);
  penalties();
  match();
  collect();
  refine();
  if (m_options.fuse) {
    fuse();
  }
  provide(out);
  filter(leftEye, out.view);
  withholdImpossible(leftEye, rightEye);
  if (m_options.selfCalibrate) {
    calibrateRows();  // rows can be told from texture that repeats as from any other
  }
  drop(0, m_size.height, m_repeatMarks, RangeState::inconsistent);
  report(out);
}

void WideDepth::Engine::reset() {
  if (m_rowFit.correction() > 0.0) {
    m_rowFit.reset();
    buildRightMap();
  }
  m_rowFit.reset();
  if (m_options.fuse) {
    m_pastDisparity.create(m_size.width, m_size.height, noDisparity);
    m_pastWeight.create(m_size.width, m_size.height, 0.0F);
  }
}

void WideDepth::Engine::prepare(const cv::Mat& leftEye, const cv::Mat& rightEye) {
  const auto strips = [](int height) { return 2 * ((height + stripRows - 1) / stripRows); };
  const auto doStrip = [&](int strip, int height, const auto& work) {
    const int from = strip / 2 * stripRows;
    work(strip % 2 != 0, strip % 2 == 0 ? m_left : m_right, from, std::min(from + stripRows, height));
  };
  const auto forBoth = [&](int height, const auto& work) {
    forTasks(strips(height), threads(), [&](int strip) { doStrip(strip, height, work); });
  };
  forBoth(m_eyeSize.height, [&](bool isRight, Eye& eye, int from, int to) {
    smoothGray(isRight ? rightEye : leftEye, from, to, eye.gray.data(), m_eyeSize.width);
  });
  forBoth(m_size.height, [&](bool isRight, Eye& eye, int from, int to) {
    const int width = isRight ? m_size.rightWidth() : m_size.width;
    sampleGray(eye.map, eye.gray.data(), m_eyeSize.width, from, to, eye.samples.data());
    for (int row = from; row < to; ++row) {
      const auto first = static_cast<std::ptrdiff_t>(row) * width;
      halveRow(eye.samples.data() + 2 * first, width, eye.halves.data() + first);
    }
  });
  const auto takeCensus = [&](bool isRight, Eye& eye, int from, int to) {
    census(eye.halves.data(), isRight ? m_size.rightWidth() : m_size.width, m_size.height, from, to, isRight,
           {eye.census[0].data(), eye.census[1].data(), eye.census[2].data()});
  };
  // The guard is the longest task, so it comes first.
  forTasks(1 + strips(m_size.height), threads(), [&](int task) {
    if (task == 0) {
      m_nearGuard.find(m_left.halves.data(), m_right.halves.data());
    } else {
      doStrip(task - 1, m_size.height, takeCensus);
    }
  });
}

// P2 is lower where the gray value jumps: an edge of range is likely there.
void WideDepth::Engine::penalties() {
  constexpr int perGray = 32;  // of `halves`
  const int W = m_size.width;
  const auto penalty = [](int a, int b) {
    return static_cast<std::uint8_t>(std::max(20 - std::abs(a - b) / (2 * perGray), 9));
  };
  forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
    for (int row = from; row < to; ++row) {
      const std::uint16_t* const now = m_left.halves.data() + at(row);
      const std::uint16_t* const above = row > 0 ? now - W : now;
      std::uint8_t* const beside = m_besidePenalty.data() + at(row);
      std::uint8_t* const over = m_abovePenalty.data() + at(row);
      for (int x = 0; x < W; ++x) {
        beside[x] = penalty(now[x], now[x > 0 ? x - 1 : x]);
        over[x] = penalty(now[x], above[x]);
      }
    }
  });
}

void WideDepth::Engine::match() {
  const MatchInput input{m_size,
                         {m_left.census[0].data(), m_left.census[1].data(), m_left.census[2].data()},
                         {m_right.census[0].data(), m_right.census[1].data(), m_right.census[2].data()},
                         m_besidePenalty.data(),
                         m_abovePenalty.data()};
  const MatchOutput output{m_matched.data(), m_flags.data(), m_repeats.output()};
  const auto strips = static_cast<int>(m_scratch.size());
  forTasks(strips, threads(), [&](int strip) {
    const int from = m_size.height * strip / strips;
    const int to = m_size.height * (strip + 1) / strips;
    matchStrip(input, std::max(from - warmRows, 0), from, to, m_scratch[static_cast<std::size_t>(strip)], output);
  });
}

void WideDepth::Engine::collect() {
  forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
    for (int row = from; row < to; ++row) {
      float* const d = m_disparity.row(row);
      float* const evidence = m_evidence.row(row);
      for (int x = 0; x < m_size.width; ++x) {
        const std::size_t k = at(row) + static_cast<std::size_t>(x);
        RangeState state = RangeState::measured;
        if (m_leftSeen[k] == 0) {
          state = RangeState::unseen;
        } else if ((m_flags[k] & (matchDisagrees | matchAmbiguous)) != 0) {
          state = RangeState::inconsistent;
        } else if ((m_flags[k] & matchAtLimit) != 0) {
          state = RangeState::tooNear;
        }
        const float found = static_cast<float>(m_matched[k]) * 0.0625F;
        m_states[k] = static_cast<std::uint8_t>(state);
        d[x] = state == RangeState::measured ? found : noDisparity;
        evidence[x] = state == RangeState::measured || state == RangeState::tooNear ? found : noDisparity;
      }
    }
  });
}

void WideDepth::Engine::refine() {
  RefineInput input;
  input.width = m_size.width;
  input.height = m_size.height;
  input.samples = 2;
  input.left = m_left.samples.data();
  input.right = m_right.samples.data();
  input.rightSeen = m_right.map.seen.data();
  input.leftWidth = m_left.map.width;
  input.rightWidth = m_right.map.width;
  input.rightFirst = 2 * m_size.disparities;
  constexpr float like = 1.0F;  // columns
  constexpr WindowStep rough{4, 2};
  constexpr WindowStep fine{2, 1};
  const auto forRows = [&](const auto& work) { forStrips(m_size.height, stripRows, threads(), work); };
  for (int pass = 0; pass < refinePasses; ++pass) {
    forRows([&](int from, int to) {
      smoothDisparity(m_size.width, from, to, m_disparity, pass == 0 ? 4 : 3, like, m_refined.disparity);
    });
    std::swap(m_disparity, m_refined.disparity);
    forRows([&](int from, int to) { refineTerms(input, from, to, m_disparity, m_terms); });
    forRows([&](int from, int to) {
      refineSolve(input, from, to, m_disparity, m_terms, like, pass == 0 ? rough : fine, m_refined);
    });
    std::swap(m_disparity, m_refined.disparity);
  }
  constexpr int step = 4;
  const double across = step * m_grid.columnStep;
  const double down = step * m_grid.rowStep;
  const FuseRule rule{step, static_cast<float>(across * across), static_cast<float>(0.5 * down * down)};
  forRows([&](int from, int to) {
    fuseDisparity(m_size.width, from, to, m_disparity, m_refined.weight, rule, m_refined.disparity, m_spareWeight);
  });
  std::swap(m_disparity, m_refined.disparity);
  std::swap(m_spareWeight, m_refined.weight);
}

void WideDepth::Engine::calibrateRows() {
  const RowFitInput input{m_grid, m_left.halves.data(), m_right.halves.data(), m_size.rightWidth(), m_size.disparities};
  if (m_rowFit.look(input, m_disparity)) {
    buildRightMap();
  }
}

}  // namespace stereo
