// SPDX-License-Identifier: Apache-2.0
// Vector kernels of the masks.
#include "src/core/MaskKernels.hpp"

#include <cmath>

#include "src/core/KernelVariants.hpp"

namespace stereo::core {

namespace {

STEREO_CAMERA_ALWAYS_INLINE int clipped(int value, int most) {
  const int atLeastZero = value < 0 ? 0 : value;
  return atLeastZero > most ? most : atLeastZero;
}

STEREO_CAMERA_ALWAYS_INLINE void circleBody(int cx, int cy, float R2, int cols, int first, int count,
                                            std::int32_t* __restrict left, std::int32_t* __restrict right) {
  // Wider than any image that fits into memory, and small enough that adding the center's column does not overflow.
  constexpr float wide = 1e9F;
  for (int k = 0; k < count; ++k) {
    const int d = cy - (first + k);
    const float rest = R2 - static_cast<float>(d * d);
    const bool crosses = rest >= 0;
    const float root = std::sqrt(crosses ? rest : 0.0F);
    const auto half = static_cast<std::int32_t>(root < wide ? root : wide);
    left[k] = crosses ? clipped(cx - half, cols) : cols;
    right[k] = crosses ? clipped(cx + half + 1, cols) : cols;
  }
}

STEREO_CAMERA_KERNEL(circle,
                     (int cx, int cy, float R2, int cols, int first, int count, std::int32_t* left,
                      std::int32_t* right),
                     (cx, cy, R2, cols, first, count, left, right))

// The span is found if the expression that decides each pixel keeps its two outermost columns, but not their outer
// neighbors (where the image has any).
STEREO_CAMERA_ALWAYS_INLINE void ellipseBody(const Ellipse& given, int cols, int first, int count,
                                             std::int32_t* __restrict left, std::int32_t* __restrict right,
                                             std::uint32_t* __restrict doubt) {
  const Ellipse e = given;
  const auto end = static_cast<float>(cols);
  for (int k = 0; k < count; ++k) {
    const float dy = static_cast<float>(first + k) - e.cye;
    const float ey = dy * dy / e.ry2;
    const bool beyond = ey > 1.0F;
    const float inner = 1.0F - ey;
    const float half = e.rx * std::sqrt(inner > 0.0F ? inner : 0.0F);
    // Round up and down by truncating non-negative values; NaN becomes column 0.
    const float from = e.cxe - half;
    const float to = e.cxe + half;
    const float fromClipped = from > 0.0F ? (from < end ? from : end) : 0.0F;
    const float toClipped = to > -1.0F ? (to < end ? to : end) : -1.0F;
    const auto fromDown = static_cast<std::int32_t>(fromClipped);
    const int l = fromDown + (static_cast<float>(fromDown) < fromClipped ? 1 : 0);
    const int afterLast = static_cast<std::int32_t>(toClipped + 1.0F);
    const int r = afterLast > cols ? cols : afterLast;
    const float dxLeft = static_cast<float>(l) - e.cxe;
    const float dxBefore = static_cast<float>(l - 1) - e.cxe;
    const float dxLast = static_cast<float>(r - 1) - e.cxe;
    const float dxAfter = static_cast<float>(r) - e.cxe;
    const bool found = (l < r) & (dxLeft * dxLeft / e.rx2 + ey <= 1.0F) & (dxLast * dxLast / e.rx2 + ey <= 1.0F) &
                       ((l == 0) | (dxBefore * dxBefore / e.rx2 + ey > 1.0F)) &
                       ((r == cols) | (dxAfter * dxAfter / e.rx2 + ey > 1.0F));
    left[k] = beyond ? cols : l;
    right[k] = beyond ? cols : r;
    doubt[k] = (beyond | found) ? 0U : 1U;
  }
}

STEREO_CAMERA_KERNEL(ellipse,
                     (const Ellipse& e, int cols, int first, int count, std::int32_t* left, std::int32_t* right,
                      std::uint32_t* doubt),
                     (e, cols, first, count, left, right, doubt))

}  // namespace

void circleSpans(int cx, int cy, float R2, int cols, int first, int count, const KeptSpans& spans) {
  circle(cx, cy, R2, cols, first, count, spans.left, spans.right);
}

void ellipseSpans(const Ellipse& e, int cols, int first, int count, const KeptSpans& spans, std::uint32_t* doubt) {
  ellipse(e, cols, first, count, spans.left, spans.right, doubt);
}

}  // namespace stereo::core
