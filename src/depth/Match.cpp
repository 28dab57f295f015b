// SPDX-License-Identifier: Apache-2.0
// Semi-global matching of two views whose rows are epipolar lines.
#include "src/depth/Match.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "src/depth/KernelForms.hpp"

namespace stereo::depth {

namespace {

constexpr int smallPenalty = 3;  // P1
// Costs beyond either end of a column: more than any, and P1 more still fits.
constexpr std::uint8_t outside = 200;
// Bytes after each column of costs, read as the neighbors of its last and of the next one's first.
constexpr int gap = 32;

// Costs around a sample: 24 bits of 9 columns of 2 rows, halved, are at most 216. Noise gives half of that; a third
// less at the view's sides, where columns are missing.
constexpr int aroundReach = 4;   // columns
constexpr int worstMatch = 40;   // of a sample that says something: what noise hardly gives by chance
constexpr int rivalMargin = 20;  // a rival may be worse by this and a quarter: it seldom falls on a whole column
constexpr int leastRise = 20;    // of the costs between both, above what a rival may have

#if STEREO_DEPTH_HAS_AVX2
#define STEREO_DEPTH_LANES 32
STEREO_DEPTH_AVX2_BEGIN
namespace avx2 {
#include "src/depth/MatchBody.hpp"
}
STEREO_DEPTH_AVX2_END
#undef STEREO_DEPTH_LANES
#endif
#define STEREO_DEPTH_LANES 16
namespace plain {
#include "src/depth/MatchBody.hpp"
}
#undef STEREO_DEPTH_LANES

// The columns of costs, each followed by a gap; one gap before the first.
void prepareColumns(std::vector<std::uint8_t>& memory, int columns, int disparities) {
  const auto stride = static_cast<std::size_t>(disparities) + gap;
  memory.assign(gap + stride * static_cast<std::size_t>(columns), outside);
}

void clearColumns(std::vector<std::uint8_t>& memory, int columns, int disparities) {
  for (int k = 0; k < columns; ++k) {
    std::fill_n(memory.data() + gap + static_cast<std::ptrdiff_t>(k) * (disparities + gap), disparities,
                static_cast<std::uint8_t>(0));
  }
}

}  // namespace

MatchScratch::MatchScratch(const MatchSize& size) {
  for (auto& path : paths) {
    prepareColumns(path, size.width + 1, size.disparities);
  }
  for (auto& values : least) {
    values.assign(static_cast<std::size_t>(size.width) + 1, 0);
  }
  const std::size_t row = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.disparities);
  costs.assign(row, 0);
  around.assign(row / 2, 0);  // samples are at least two columns apart
  beyond.assign(static_cast<std::size_t>(size.disparities) + gap + gap, 255);
  sums.assign(row, 0);
  prepareColumns(lines, 4, size.disparities);
  rightBest.assign(static_cast<std::size_t>(size.rightWidth()) + gap, 0);
  rightIndex.assign(static_cast<std::size_t>(size.rightWidth()) + gap, 0);
}

void matchStrip(const MatchInput& input, int warm, int from, int to, MatchScratch& scratch, const MatchOutput& output) {
  const MatchSize& size = input.size;
  for (int path = 0; path < 3; ++path) {
    clearColumns(scratch.paths[path], size.width + 1, size.disparities);
    std::fill(scratch.least[path].begin(), scratch.least[path].end(), static_cast<std::uint8_t>(0));
  }
  for (int row = warm; row < to; ++row) {
    clearColumns(scratch.lines, 4, size.disparities);
    STEREO_DEPTH_CALL(forwardRow, input, row, scratch);
    if (output.rivals.larger != nullptr) {
      const int place = row % output.rivals.step - output.rivals.step / 2;
      if (place == -1 || place == 0) {
        STEREO_DEPTH_CALL(addAround, size, output.rivals.step, place < 0, scratch);
      }
    }
    if (row >= from) {
      STEREO_DEPTH_CALL(backwardRow, input, row, scratch, output);
    }
  }
}

}  // namespace stereo::depth
