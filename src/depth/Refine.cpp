// SPDX-License-Identifier: Apache-2.0
// Refines disparities by least squares on patches.
#include "src/depth/Refine.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "src/depth/KernelForms.hpp"

namespace stereo::depth {

namespace {

constexpr int windowReach = 4;       // pixels: the window is 9 x 9
constexpr float largestStep = 1.0F;  // columns that one refinement may move a disparity

// Pairs of pixels that are averaged: how much they may differ, columns, and by how many variances from the middle one.
constexpr float likePair = 4.0F;
constexpr float agreement = 8.0F;

#if STEREO_DEPTH_HAS_AVX2
#define STEREO_DEPTH_LANES 8
STEREO_DEPTH_AVX2_BEGIN
namespace avx2 {
#include "src/depth/RefineBody.hpp"
}
STEREO_DEPTH_AVX2_END
#undef STEREO_DEPTH_LANES
#endif
#define STEREO_DEPTH_LANES 4
namespace plain {
#include "src/depth/RefineBody.hpp"
}
#undef STEREO_DEPTH_LANES

}  // namespace

void Plane::create(int width, int height, float value) {
  m_stride = (static_cast<std::ptrdiff_t>(width) + border + border + 7) / 8 * 8;
  m_values.assign(static_cast<std::size_t>(m_stride) * static_cast<std::size_t>(height + 2 * border), value);
}

void RefineTerms::create(int width, int height) {
  for (Plane& plane : planes) {
    plane.create(width, height, 0.0F);
  }
}

void RefineResult::create(int width, int height) {
  for (Plane* plane : {&disparity, &sigma, &correlation, &texture, &weight, &misfit}) {
    plane->create(width, height, plane == &disparity ? noDisparity : 0.0F);
  }
}

void refineTerms(const RefineInput& input, int from, int to, Plane& disparity, RefineTerms& terms) {
  for (int row = from; row < to; ++row) {
    STEREO_DEPTH_CALL(termsOfRow, input, row, disparity, terms);
  }
}

void refineSolve(const RefineInput& input, int from, int to, const Plane& disparity, const RefineTerms& terms,
                 float like, const WindowStep& step, RefineResult& result) {
  for (int row = from; row < to; ++row) {
    STEREO_DEPTH_CALL(solveRow, input, row, disparity, terms, like, step, result);
  }
}

void smoothDisparity(int width, int from, int to, const Plane& disparity, int reach, float like, Plane& smoothed) {
  for (int row = from; row < to; ++row) {
    STEREO_DEPTH_CALL(smoothRow, width, row, disparity, reach, like, smoothed);
  }
}

void fuseDisparity(int width, int from, int to, const Plane& disparity, const Plane& weight, const FuseRule& rule,
                   Plane& fused, Plane& fusedWeight) {
  for (int row = from; row < to; ++row) {
    STEREO_DEPTH_CALL(fuseRow, width, row, disparity, weight, rule, fused, fusedWeight);
  }
}

}  // namespace stereo::depth
