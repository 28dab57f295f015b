// SPDX-License-Identifier: Apache-2.0
// Finds things that are too near for the search.
#include "src/depth/NearGuard.hpp"

#include <algorithm>
#include <cstdlib>

#include "src/depth/Prepare.hpp"

namespace stereo::depth {

namespace {

constexpr int factor = NearGuard::columns;
constexpr int rivalStep = 2;    // pixels of the quarter
constexpr int rivalShare = 88;  // percent: little texture is left in the quarter

MatchSize quartered(const MatchSize& full) {
  MatchSize size;
  size.width = std::max(full.width / factor, 1);
  size.height = std::max(full.height / factor, 1);
  // As far as a thing next to the eyes is displaced: no farther than the view is wide.
  size.disparities = std::clamp((std::min(full.disparities, size.width) + 31) / 32 * 32, 32, 256);
  return size;
}

// Means of blocks of 4 x 4, of `width` x `height` columns that begin at `first` in rows of `stride`; 0 outside.
void shrink(const std::uint16_t* image, int stride, int columns, int first, int width, int height,
            std::uint16_t* small) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int from = first + x * factor;
      std::uint32_t sum = 0;
      if (from >= 0 && from + factor <= columns) {
        for (int k = 0; k < factor; ++k) {
          const std::uint16_t* const at = image + static_cast<std::ptrdiff_t>(y * factor + k) * stride + from;
          sum += static_cast<std::uint32_t>(at[0] + at[1] + at[2] + at[3]);
        }
      }
      small[static_cast<std::ptrdiff_t>(y) * width + x] = static_cast<std::uint16_t>(sum / (factor * factor));
    }
  }
}

// Whether gray values hardly change along the row around a pixel: what fits there is noise. Things that are too near
// for the lens to be sharp still have shades.
bool isPlain(const std::uint16_t* row, int x, int width) {
  constexpr int reach = 3;       // columns to each side
  constexpr int mostSteps = 16;  // mean of the steps over two columns: half a gray level, 32 each
  const int first = std::max(x - reach, 1);
  const int last = std::min(x + reach, width - 2);
  int steps = 0;
  for (int k = first; k <= last; ++k) {
    steps += std::abs(row[k + 1] - row[k - 1]);
  }
  return steps <= mostSteps * (last - first + 1);
}

}  // namespace

NearGuard::NearGuard(const MatchSize& size)
    : m_full(size),
      m_size(quartered(size)),
      m_scratch(m_size),
      m_repeats(m_size, rivalStep, rivalShare, (size.disparities - 2 * factor) / factor - MatchSize::least) {
  const auto pixels = static_cast<std::size_t>(m_size.width) * static_cast<std::size_t>(m_size.height);
  const auto rightPixels = static_cast<std::size_t>(m_size.rightWidth()) * static_cast<std::size_t>(m_size.height);
  m_left.assign(pixels, 0);
  m_right.assign(rightPixels, 0);
  for (int k = 0; k < 3; ++k) {
    m_leftCensus[k].assign(pixels + 64, 0);
    m_rightCensus[k].assign(rightPixels + 64, 0);
  }
  m_penalties.assign(pixels, 20);
  m_disparity.assign(pixels, 0);
  m_flags.assign(pixels, 0);
  m_near.assign(pixels, 0);
  m_beside.assign(pixels, 0);
}

void NearGuard::find(const std::uint16_t* left, const std::uint16_t* right) {
  if (m_full.width < factor || m_full.height < factor) {
    return;
  }
  const int W = m_size.width;
  const int H = m_size.height;
  shrink(left, m_full.width, m_full.width, 0, W, H, m_left.data());
  // Column 0 of the right view is `disparities` columns left of the left view's first.
  shrink(right, m_full.rightWidth(), m_full.rightWidth(), m_full.disparities - factor * m_size.disparities,
         m_size.rightWidth(), H, m_right.data());
  census(m_left.data(), W, H, 0, H, false, {m_leftCensus[0].data(), m_leftCensus[1].data(), m_leftCensus[2].data()});
  census(m_right.data(), m_size.rightWidth(), H, 0, H, true,
         {m_rightCensus[0].data(), m_rightCensus[1].data(), m_rightCensus[2].data()});
  const MatchInput input{m_size,
                         {m_leftCensus[0].data(), m_leftCensus[1].data(), m_leftCensus[2].data()},
                         {m_rightCensus[0].data(), m_rightCensus[1].data(), m_rightCensus[2].data()},
                         m_penalties.data(),
                         m_penalties.data()};
  matchStrip(input, 0, 0, H, m_scratch, {m_disparity.data(), m_flags.data(), m_repeats.output()});
  m_repeats.find();
  mark();
}

void NearGuard::mark() {
  const int W = m_size.width;
  const int H = m_size.height;
  // Disparities, in 1/16 of a quarter's column, that the search does not reach.
  const int beyond = (m_full.disparities + MatchSize::least - 2 * factor) * 16 / factor;
  for (std::size_t k = 0; k < m_near.size(); ++k) {
    const auto x = static_cast<int>(k % static_cast<std::size_t>(W));
    const bool isNear = (m_flags[k] & matchDisagrees) == 0 && m_disparity[k] > beyond;
    m_near[k] = isNear && !isPlain(m_left.data() + (k - static_cast<std::size_t>(x)), x, W) ? 255 : 0;
  }
  for (int y = 0; y < H; ++y) {
    const std::uint8_t* const repeats = m_repeats.row(y);
    for (int x = 0; x < W; ++x) {
      std::uint8_t any = repeats[std::min(x / m_repeats.step(), m_repeats.lastMark())];
      for (int dy = std::max(y - 1, 0); dy <= std::min(y + 1, H - 1); ++dy) {
        for (int dx = std::max(x - 1, 0); dx <= std::min(x + 1, W - 1); ++dx) {
          any |= m_near[static_cast<std::size_t>(dy) * static_cast<std::size_t>(W) + static_cast<std::size_t>(dx)];
        }
      }
      m_beside[static_cast<std::size_t>(y) * static_cast<std::size_t>(W) + static_cast<std::size_t>(x)] = any;
    }
  }
}

std::ptrdiff_t NearGuard::firstOf(int y) const {
  return static_cast<std::ptrdiff_t>(std::min(y / factor, m_size.height - 1)) * m_size.width;
}

}  // namespace stereo::depth
