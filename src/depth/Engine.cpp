// SPDX-License-Identifier: Apache-2.0
// The chain from two eyes to range.
#include "src/depth/Engine.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "src/core/OutputReuse.hpp"
#include "src/depth/Prepare.hpp"
#include "src/depth/Range.hpp"
#include "src/depth/Tasks.hpp"

namespace stereo {

using namespace depth;

namespace {

constexpr int stripRows = 16;
constexpr int matchRows = 200;  // of a strip that is matched by itself: fixed, since the strips show in the result
constexpr int warmRows = 24;    // before a strip
constexpr int refinePasses = 2;
constexpr float largestError = 0.022F;  // standard error over disparity
constexpr float leastCorrelation = 0.6F;
constexpr float edgeStep = 1.5F;  // columns by which neighbors of one surface may differ
constexpr int leastSurface = 60;  // pixels of a connected surface

[[noreturn]] void refuse(const char* why) { CV_Error(cv::Error::StsBadArg, why); }

double radians(double degrees) { return degrees * (CV_PI / 180.0); }

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

MatchSize matchSize(const ViewGrid& grid, double baseline, double nearest) {
  // A column more than the nearest thing's parallax, so that it isn't at the end of the search.
  const double columns = largestParallax(baseline, nearest) / grid.columnStep() - MatchSize::least + 2;
  MatchSize size;
  size.width = grid.width;
  size.height = grid.height;
  size.disparities = std::clamp((static_cast<int>(columns) + 31) / 32 * 32, 32, 256);
  return size;
}

}  // namespace

WideDepth::Engine::Engine(const WideDepthCalibration& calibration, cv::Size eye, const WideDepthOptions& options)
    : m_options(checked(options)),
      m_eyeSize(eye),
      m_eyes(eyePair(calibration, eye)),
      m_grid{options.size.width, options.size.height, radians(options.horizontalField), radians(options.verticalField)},
      m_size(matchSize(m_grid, m_eyes.baseline, options.nearest)),
      m_speckFinder(m_grid.width, m_grid.height) {
  m_rays = unitRays(m_grid);
  const int W = m_size.width;
  const int H = m_size.height;
  const auto total = static_cast<std::size_t>(W) * static_cast<std::size_t>(H);
  const auto rightTotal = static_cast<std::size_t>(m_size.rightWidth()) * static_cast<std::size_t>(H);
  m_grayStride = eye.width;
  const std::int32_t outside = eye.width * eye.height;
  ViewGrid fine = m_grid;
  fine.width *= 2;
  buildSampleMap(m_eyes.eyes[0], eye, fine, 0, 2 * W, {}, eye.width, outside, threads(), m_left.map);
  buildSampleMap(m_eyes.eyes[1], eye, fine, -2 * m_size.disparities, 2 * m_size.rightWidth(), {}, eye.width, outside,
                 threads(), m_right.map);
  buildSampleMap(m_eyes.eyes[0], eye, m_grid, 0, W, {}, eye.width, outside, threads(), m_viewMap);
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
  m_fusedWeight.create(W, H, 0.0F);
  for (auto* image : {&m_hidden, &m_beside, &m_specks, &m_states}) {
    image->assign(total, 0);
  }
}

int WideDepth::Engine::threads() const {
  const int available = std::max(cv::getNumThreads(), 1);
  return m_options.threads == 0 ? available : std::min(m_options.threads, available);
}

void WideDepth::Engine::prepare(const cv::Mat& leftEye, const cv::Mat& rightEye) {
  const int strips = (m_eyeSize.height + stripRows - 1) / stripRows;
  forTasks(2 * strips, threads(), [&](int task) {
    const int from = task / 2 * stripRows;
    Eye& eye = task % 2 == 0 ? m_left : m_right;
    smoothGray(task % 2 == 0 ? leftEye : rightEye, from, std::min(from + stripRows, m_eyeSize.height), eye.gray.data(),
               m_grayStride);
  });
  const int H = m_size.height;
  forTasks(2 * ((H + stripRows - 1) / stripRows), threads(), [&](int task) {
    const int from = task / 2 * stripRows;
    const int to = std::min(from + stripRows, H);
    Eye& eye = task % 2 == 0 ? m_left : m_right;
    const int width = task % 2 == 0 ? m_size.width : m_size.rightWidth();
    sampleGray(eye.map, eye.gray.data(), m_grayStride, from, to, eye.samples.data());
    for (int row = from; row < to; ++row) {
      const auto at = static_cast<std::ptrdiff_t>(row) * width;
      halveRow(eye.samples.data() + 2 * at, width, eye.halves.data() + at);
    }
  });
  forTasks(2 * ((H + stripRows - 1) / stripRows), threads(), [&](int task) {
    const int from = task / 2 * stripRows;
    const int to = std::min(from + stripRows, H);
    Eye& eye = task % 2 == 0 ? m_left : m_right;
    const int width = task % 2 == 0 ? m_size.width : m_size.rightWidth();
    census(eye.halves.data(), width, H, from, to, task % 2 != 0,
           {eye.census[0].data(), eye.census[1].data(), eye.census[2].data()});
  });
}

void WideDepth::Engine::penalties() {
  // P2 is lower where the gray value jumps: a range edge is likely there.
  constexpr int scale = 32;  // of `halves`
  const int W = m_size.width;
  forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
    for (int row = from; row < to; ++row) {
      const std::uint16_t* const now = m_left.halves.data() + static_cast<std::ptrdiff_t>(row) * W;
      const std::uint16_t* const above = row > 0 ? now - W : now;
      std::uint8_t* const beside = m_besidePenalty.data() + static_cast<std::ptrdiff_t>(row) * W;
      std::uint8_t* const over = m_abovePenalty.data() + static_cast<std::ptrdiff_t>(row) * W;
      for (int x = 0; x < W; ++x) {
        const int left = std::abs(now[x] - now[x > 0 ? x - 1 : x]);
        const int up = std::abs(now[x] - above[x]);
        beside[x] = static_cast<std::uint8_t>(std::max(20 - left / (2 * scale), 9));
        over[x] = static_cast<std::uint8_t>(std::max(20 - up / (2 * scale), 9));
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
  const MatchOutput output{m_matched.data(), m_flags.data()};
  const auto strips = static_cast<int>(m_scratch.size());
  forTasks(strips, threads(), [&](int strip) {
    const int from = m_size.height * strip / strips;
    const int to = m_size.height * (strip + 1) / strips;
    matchStrip(input, std::max(from - warmRows, 0), from, to, m_scratch[static_cast<std::size_t>(strip)], output);
  });
}

void WideDepth::Engine::collect() {
  const int W = m_size.width;
  forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
    for (int row = from; row < to; ++row) {
      float* const d = m_disparity.row(row);
      float* const evidence = m_evidence.row(row);
      const auto first = static_cast<std::size_t>(row) * static_cast<std::size_t>(W);
      for (int x = 0; x < W; ++x) {
        const std::size_t at = first + static_cast<std::size_t>(x);
        RangeState state = RangeState::measured;
        if (m_leftSeen[at] == 0) {
          state = RangeState::unseen;
        } else if ((m_flags[at] & (matchDisagrees | matchAmbiguous)) != 0) {
          state = RangeState::inconsistent;
        } else if ((m_flags[at] & matchAtLimit) != 0) {
          state = RangeState::tooNear;
        }
        m_states[at] = static_cast<std::uint8_t>(state);
        evidence[x] = (m_flags[at] & (matchDisagrees | matchAmbiguous)) == 0
                          ? static_cast<float>(m_matched[at]) * 0.0625F
                          : noDisparity;
        d[x] = state == RangeState::measured ? static_cast<float>(m_matched[at]) * 0.0625F : noDisparity;
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
  input.gain = m_gain;
  for (int pass = 0; pass < refinePasses; ++pass) {
    forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
      smoothDisparity(m_size.width, from, to, m_disparity, 4, 1.0F, m_refined.disparity);
    });
    std::swap(m_disparity, m_refined.disparity);
    forStrips(m_size.height, stripRows, threads(),
              [&](int from, int to) { refineTerms(input, from, to, m_disparity, m_terms); });
    forStrips(m_size.height, stripRows, threads(),
              [&](int from, int to) { refineSolve(input, from, to, m_disparity, m_terms, 1.0F, 2, m_refined); });
    std::swap(m_disparity, m_refined.disparity);
  }
  forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
    fuseDisparity(m_size.width, from, to, m_disparity, m_refined.weight, 4, m_refined.disparity, m_fusedWeight);
  });
  std::swap(m_disparity, m_refined.disparity);
  std::swap(m_fusedWeight, m_refined.weight);
}

void WideDepth::Engine::filter() {
  const auto nearParallax = static_cast<float>(0.2 / m_grid.columnStep());
  const int W = m_size.width;
  const auto drop = [&](int from, int to, const std::vector<std::uint8_t>& marks, RangeState why) {
    for (int row = from; row < to; ++row) {
      float* const d = m_disparity.row(row);
      const auto first = static_cast<std::size_t>(row) * static_cast<std::size_t>(W);
      for (int x = 0; x < W; ++x) {
        if (marks[first + static_cast<std::size_t>(x)] != 0 && d[x] != noDisparity) {
          d[x] = noDisparity;
          m_states[first + static_cast<std::size_t>(x)] = static_cast<std::uint8_t>(why);
        }
      }
    }
  };
  forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
    for (int row = from; row < to; ++row) {
      float* const d = m_disparity.row(row);
      float* const sigma = m_refined.sigma.row(row);
      const float* const weight = m_refined.weight.row(row);
      const float* const correlation = m_refined.correlation.row(row);
      const float* const texture = m_refined.texture.row(row);
      std::uint8_t* const state = m_states.data() + static_cast<std::ptrdiff_t>(row) * W;
      for (int x = 0; x < W; ++x) {
        if (d[x] == noDisparity) {
          if (state[x] == static_cast<std::uint8_t>(RangeState::measured)) {
            state[x] = static_cast<std::uint8_t>(RangeState::unseen);
          }
          continue;
        }
        sigma[x] = std::sqrt(1.0F / (weight[x] + 1e-6F));
        const bool exact = sigma[x] <= largestError * std::max(d[x], 0.2F);
        if (correlation[x] >= leastCorrelation && exact) {
          continue;
        }
        d[x] = noDisparity;
        state[x] =
            static_cast<std::uint8_t>(!exact || texture[x] < 0.5F ? RangeState::textureless : RangeState::inconsistent);
      }
      findHidden(m_disparity, W, row, row + 1, edgeStep, m_hidden.data());
    }
    drop(from, to, m_hidden, RangeState::unseen);
  });
  m_speckFinder.find(m_disparity, edgeStep, leastSurface, m_specks.data());
  drop(0, m_size.height, m_specks, RangeState::inconsistent);
  forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
    std::fill(m_beside.begin() + static_cast<std::ptrdiff_t>(from) * W,
              m_beside.begin() + static_cast<std::ptrdiff_t>(to) * W, static_cast<std::uint8_t>(0));
    findBeside(m_disparity, m_disparity, W, from, to, {2, noDisparity, 1.0F, edgeStep}, m_beside.data());
    findBeside(m_disparity, m_evidence, W, from, to, {3, nearParallax, 1.2F, 1.0F}, m_beside.data());
  });
  drop(0, m_size.height, m_beside, RangeState::inconsistent);
}

void WideDepth::Engine::report(const cv::Mat& leftEye, WideDepthImage& out) {
  const cv::Size size = m_options.size;
  const auto fit = [&](cv::Mat& image, int type) {
    if (!core::isSoleOwner(image) || image.size() != size || image.type() != type || !image.isContinuous()) {
      image = cv::Mat(size, type);
    }
  };
  fit(out.range, CV_32FC1);
  fit(out.state, CV_8UC1);
  fit(out.confidence, CV_8UC1);
  fit(out.view, CV_8UC3);
  const RangeModel model(m_grid, m_eyes.baseline, m_options.nearest, m_options.farthest);
  forStrips(size.height, stripRows, threads(), [&](int from, int to) {
    sampleColor(m_viewMap, leftEye, from, to, out.view);
    for (int row = from; row < to; ++row) {
      const std::uint8_t* const state = m_states.data() + static_cast<std::ptrdiff_t>(row) * m_size.width;
      std::copy_n(state, size.width, out.state.ptr(row));
      rangeRow(model, m_disparity.row(row), m_refined.sigma.row(row), size.width, out.range.ptr<float>(row),
               out.state.ptr(row), out.confidence.ptr(row));
    }
  });
}

void WideDepth::Engine::compute(const cv::Mat& leftEye, const cv::Mat& rightEye, WideDepthImage& out) {
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
  prepare(leftEye, rightEye);
  penalties();
  match();
  collect();
  refine();
  filter();
  report(leftEye, out);
}

void WideDepth::Engine::reset() {}

}  // namespace stereo
