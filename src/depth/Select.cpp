// SPDX-License-Identifier: Apache-2.0
// The chain from two eyes to range: which disparities are kept, and what is reported.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "src/core/OutputReuse.hpp"
#include "src/depth/Engine.hpp"
#include "src/depth/Prepare.hpp"
#include "src/depth/Tasks.hpp"

namespace stereo {

using namespace depth;

namespace {

constexpr int stripRows = 16;
constexpr float largestError = 0.028F;  // standard error over disparity
constexpr float leastCorrelation = 0.8F;
constexpr float sureCorrelation = 0.95F;  // of pixels that may be this close to something much nearer
constexpr float mostMisfit = 0.33F;       // of a pixel that is not a thing narrower than the window
constexpr float leastTexture = 0.5F;      // of a surface that is not plain, gray levels squared
constexpr float edgeStep = 1.5F;          // columns by which neighbors of one surface may differ
constexpr int leastSurface = 40;          // pixels
constexpr double nearParallax = 0.2;      // radians: what is nearer gets a margin
constexpr int narrowMargin = 3;           // pixels
constexpr int wideMargin = 5;
constexpr float mostFrames = 7.0F;       // as much as all past frames may weigh
constexpr float pastShare = 0.6F;        // of their weight: what is wrong with a pixel often stays
constexpr std::int16_t farBehind = -16;  // disparity in 1/16 columns that noise about zero does not reach
constexpr float sameThing = 4.0F;        // variances between what earlier frames say and this one

constexpr auto code(RangeState state) { return static_cast<std::uint8_t>(state); }

}  // namespace

void WideDepth::Engine::drop(int from, int to, const std::vector<std::uint8_t>& marks, RangeState why) {
  for (int row = from; row < to; ++row) {
    float* const d = m_disparity.row(row);
    for (int x = 0; x < m_size.width; ++x) {
      const std::size_t k = at(row) + static_cast<std::size_t>(x);
      if (marks[k] != 0 && d[x] != noDisparity) {
        d[x] = noDisparity;
        m_states[k] = code(why);
      }
    }
  }
}

// Averages what agrees with earlier frames; anything else begins anew. Only what this frame measured goes on, so
// nothing stays behind where something moved away.
void WideDepth::Engine::fuse() {
  forStrips(m_size.height, stripRows, threads(), [&](int from, int to) {
    for (int row = from; row < to; ++row) {
      float* const d = m_disparity.row(row);
      float* const w = m_refined.weight.row(row);
      float* const past = m_pastDisparity.row(row);
      float* const pastWeight = m_pastWeight.row(row);
      for (int x = 0; x < m_size.width; ++x) {
        if (d[x] != noDisparity && w[x] > 0.0F) {
          const float step = past[x] - d[x];
          const float p = std::min(pastWeight[x], mostFrames * w[x]);
          // step^2 <= sameThing (1 / w + 1 / p)
          if (p > 0.0F && step * step * (w[x] * p) <= sameThing * (w[x] + p)) {
            d[x] += step * (p / (w[x] + p));
            w[x] += pastShare * p;
          }
        }
        past[x] = d[x];
        pastWeight[x] = d[x] != noDisparity ? w[x] : 0.0F;
      }
    }
  });
}

// Pixels that are not exact enough, that don't correlate, or that belong to something nearer than the search reaches.
void WideDepth::Engine::rejectDoubtful(int from, int to) {
  for (int row = from; row < to; ++row) {
    float* const d = m_disparity.row(row);
    float* const sigma = m_refined.sigma.row(row);
    const float* const weight = m_refined.weight.row(row);
    const float* const correlation = m_refined.correlation.row(row);
    const float* const texture = m_refined.texture.row(row);
    const float* const misfit = m_refined.misfit.row(row);
    std::uint8_t* const state = m_states.data() + at(row);
    const std::uint8_t* const isNear = m_nearGuard.nearRow(row);
    const std::uint8_t* const isBeside = m_nearGuard.besideRow(row);
    for (int x = 0; x < m_size.width; ++x) {
      sigma[x] = std::sqrt(1.0F / (weight[x] + 1e-6F));
    }
    for (int x = 0; x < m_size.width; ++x) {
      const int mark = std::min(x / NearGuard::columns, m_nearGuard.lastMark());
      const bool has = d[x] != noDisparity;
      if (!has && state[x] == code(RangeState::measured)) {
        state[x] = code(RangeState::unseen);  // by the right eye
      }
      if (state[x] == code(RangeState::unseen)) {
        continue;
      }
      const bool isExact = sigma[x] <= largestError * std::max(d[x], 0.2F);
      if (isNear[mark] != 0) {
        state[x] = code(RangeState::tooNear);
      } else if (has && isBeside[mark] != 0) {
        state[x] = code(RangeState::inconsistent);
      } else if (has && (!isExact || correlation[x] < leastCorrelation || misfit[x] > mostMisfit)) {
        state[x] = code(!isExact || texture[x] < leastTexture ? RangeState::textureless : RangeState::inconsistent);
      }
      d[x] = state[x] == code(RangeState::measured) ? d[x] : noDisparity;
    }
  }
}

// Near a thing at arm's length a little error of its edge would report it much too far.
void WideDepth::Engine::rejectBeside(int from, int to) {
  const auto first = static_cast<std::ptrdiff_t>(at(from));
  const auto last = static_cast<std::ptrdiff_t>(at(to));
  std::fill(m_marks.begin() + first, m_marks.begin() + last, static_cast<std::uint8_t>(0));
  std::fill(m_wideMarks.begin() + first, m_wideMarks.begin() + last, static_cast<std::uint8_t>(0));
  const auto least = static_cast<float>(nearParallax / m_grid.columnStep);
  const BesideRule rule{narrowMargin, least, 1.2F, 1.0F};
  findBeside(m_disparity, m_evidence, m_size.width, from, to, rule, m_marks.data());
  const BesideRule wideRule{wideMargin, least, 1.2F, 1.0F};
  findBeside(m_disparity, m_evidence, m_size.width, from, to, wideRule, m_wideMarks.data());
  for (int row = from; row < to; ++row) {
    const float* const correlation = m_refined.correlation.row(row);
    for (int x = 0; x < m_size.width; ++x) {
      const std::size_t k = at(row) + static_cast<std::size_t>(x);
      if (m_wideMarks[k] != 0 && correlation[x] < sureCorrelation) {
        m_marks[k] = 255;
      }
    }
  }
}

void WideDepth::Engine::filter(const cv::Mat& leftEye, cv::Mat& view) {
  const int W = m_size.width;
  const auto forRows = [&](const auto& work) { forStrips(m_size.height, stripRows, threads(), work); };
  forRows([&](int from, int to) {
    rejectDoubtful(from, to);
    findHidden(m_disparity, W, from, to, edgeStep, m_marks.data());
    drop(from, to, m_marks, RangeState::unseen);
  });
  // Surfaces are found by one thread; the others paint the view meanwhile.
  const int strips = (m_view.height + stripRows - 1) / stripRows;
  forTasks(1 + strips, threads(), [&](int task) {
    if (task == 0) {
      m_speckFinder.find(m_disparity, edgeStep, leastSurface, m_marks.data());
      m_repeats.find();
      return m_speckFinder.markRepeats(m_repeats, m_repeatMarks.data());
    }
    const int from = (task - 1) * stripRows;
    sampleColor(m_viewMap, leftEye, from, std::min(from + stripRows, m_view.height), view);
  });
  forRows([&](int from, int to) {
    drop(from, to, m_marks, RangeState::inconsistent);
    rejectBeside(from, to);
    drop(from, to, m_marks, RangeState::inconsistent);
    namePlain(from, to);
  });
}

// Where gray values hardly change along the row, it was noise that the eyes disagreed about, or agreed about at the
// search's end.
void WideDepth::Engine::namePlain(int from, int to) {
  constexpr int reach = 6;       // columns to each side
  constexpr int mostSteps = 48;  // mean of the steps over two columns: 1.5 gray levels, 32 of `halves` each
  for (int row = from; row < to; ++row) {
    const std::uint16_t* const halves = m_left.halves.data() + at(row);
    std::uint8_t* const state = m_states.data() + at(row);
    const std::uint8_t* const isNear = m_nearGuard.nearRow(row);
    for (int x = 0; x < m_size.width; ++x) {
      const bool isGuess = state[x] == code(RangeState::tooNear) &&
                           isNear[std::min(x / NearGuard::columns, m_nearGuard.lastMark())] == 0;
      if (state[x] != code(RangeState::inconsistent) && !isGuess) {
        continue;
      }
      const int first = std::max(x - reach, 1);
      const int last = std::min(x + reach, m_size.width - 2);
      int steps = 0;
      for (int k = first; k <= last; ++k) {
        steps += std::abs(halves[k + 1] - halves[k - 1]);
      }
      if (steps <= mostSteps * (last - first + 1)) {
        state[x] = code(RangeState::textureless);
      }
    }
  }
}

// Where both eyes get the same picture, nothing is true. Neither is it where much agrees on a parallax that only points
// behind the eyes could have: the eyes are swapped, or the calibration is another camera's.
void WideDepth::Engine::withholdImpossible(const cv::Mat& leftEye, const cv::Mat& rightEye) {
  const auto rowBytes = static_cast<std::size_t>(leftEye.cols) * leftEye.elemSize();
  bool isImpossible = true;
  for (int row = 0; row < leftEye.rows && isImpossible; ++row) {
    isImpossible = std::memcmp(leftEye.ptr(row), rightEye.ptr(row), rowBytes) == 0;
  }
  std::ptrdiff_t measured = 0;
  std::ptrdiff_t behind = 0;
  for (std::size_t k = 0; k < m_states.size(); ++k) {
    measured += m_states[k] == code(RangeState::measured) ? 1 : 0;
    behind += m_flags[k] == 0 && m_leftSeen[k] != 0 && m_matched[k] <= farBehind ? 1 : 0;
  }
  if (isImpossible || behind > measured / 4) {
    std::fill(m_marks.begin(), m_marks.end(), static_cast<std::uint8_t>(255));
    drop(0, m_size.height, m_marks, RangeState::inconsistent);
  }
}

// A row of the view from the grid. Where it is finer, disparities are interpolated among those of one surface.
void WideDepth::Engine::enlargeRow(int row, float* disparity, float* sigma, std::uint8_t* state) const {
  if (m_factor == 1) {
    std::copy_n(m_disparity.row(row), m_view.width, disparity);
    std::copy_n(m_refined.sigma.row(row), m_view.width, sigma);
    std::copy_n(m_states.data() + at(row), m_view.width, state);
    return;
  }
  const auto factor = static_cast<float>(m_factor);
  const int y = std::min(row / m_factor, m_size.height - 1);
  const float middle = (static_cast<float>(row % m_factor) + 0.5F) / factor - 0.5F;  // of the grid's row, in rows
  const int otherY = std::clamp(y + (middle < 0.0F ? -1 : 1), 0, m_size.height - 1);
  const float v = std::abs(middle);
  for (int column = 0; column < m_view.width; ++column) {
    const int x = std::min(column / m_factor, m_size.width - 1);
    const float center = (static_cast<float>(column % m_factor) + 0.5F) / factor - 0.5F;
    const int otherX = std::clamp(x + (center < 0.0F ? -1 : 1), 0, m_size.width - 1);
    const float u = std::abs(center);
    const float own = m_disparity.row(y)[x];
    const auto like = [own](float value) { return std::abs(value - own) <= edgeStep ? value : own; };
    const float beside = like(m_disparity.row(y)[otherX]);
    const float over = like(m_disparity.row(otherY)[x]);
    const float across = like(m_disparity.row(otherY)[otherX]);
    const float found = (own * (1.0F - u) + beside * u) * (1.0F - v) + (over * (1.0F - u) + across * u) * v;
    disparity[column] = own == noDisparity ? noDisparity : found * factor;
    sigma[column] = m_refined.sigma.row(y)[x] * factor;
    state[column] = m_states[at(y) + static_cast<std::size_t>(x)];
  }
}

void WideDepth::Engine::provide(WideDepthImage& out) const {
  const auto fit = [&](cv::Mat& image, int type) {
    if (!core::isSoleOwner(image) || image.size() != m_options.size || image.type() != type || !image.isContinuous()) {
      image = cv::Mat(m_options.size, type);
    }
  };
  fit(out.range, CV_32FC1);
  fit(out.state, CV_8UC1);
  fit(out.confidence, CV_8UC1);
  fit(out.view, CV_8UC3);
}

void WideDepth::Engine::report(WideDepthImage& out) const {
  const cv::Size size = m_options.size;
  forStrips(size.height, stripRows, threads(), [&](int from, int to) {
    constexpr int widest = 4096;
    float disparity[widest];
    float sigma[widest];
    for (int row = from; row < to; ++row) {
      enlargeRow(row, disparity, sigma, out.state.ptr(row));
      rangeRow(m_ranges, disparity, sigma, size.width, out.range.ptr<float>(row), out.state.ptr(row),
               out.confidence.ptr(row));
    }
  });
}

}  // namespace stereo
