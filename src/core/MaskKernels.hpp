// SPDX-License-Identifier: Apache-2.0
// Vector kernels of the masks.
#pragma once

#include <cstdint>

namespace stereo::core {

/// Columns that each row keeps, [left, right).
struct KeptSpans {
  std::int32_t* left;
  std::int32_t* right;
};

/// Circle of squared radius R2 around row cy and column cx: row i keeps the closed span [cx - half, cx + half],
/// half = floor(sqrt(R2 - (cy - i)^2)), and nothing beyond the radius; clipped to [0, cols). The squares are integers
/// converted to float. For `count` rows from `first` on; |cy - i| must be below 46341, so that its square fits an int.
void circleSpans(int cx, int cy, float R2, int cols, int first, int count, const KeptSpans& spans);

/// e = dx^2 / rx2 + dy^2 / ry2, dx = j - cxe, dy = i - cye, single precision; pixels with e > 1 are not kept.
struct Ellipse {
  float cxe, cye;
  float rx;  ///< |rx|, to locate the ends of a span; its square decides what is kept
  float rx2, ry2;
};

/// Span that row i of an ellipse keeps, clipped to [0, cols). cxe and rx2 must be finite and rx2 above 0: then e grows
/// with |dx| even after rounding, so a row keeps a span. `doubt` is not 0 where the span was not found and has to be
/// searched by testing columns. For `count` rows from `first` on.
void ellipseSpans(const Ellipse& ellipse, int cols, int first, int count, const KeptSpans& spans, std::uint32_t* doubt);

/// dy^2 / ry2 of a row.
inline float rowTerm(const Ellipse& ellipse, int i) {
  const float dy = static_cast<float>(i) - ellipse.cye;
  return dy * dy / ellipse.ry2;
}

/// Whether column j of a row with that term is kept. A pixel with e = 1 stays, and so does one where a semi-axis of
/// zero leaves e undefined.
inline bool keeps(const Ellipse& ellipse, int j, float ey) {
  const float dx = static_cast<float>(j) - ellipse.cxe;
  return !(dx * dx / ellipse.rx2 + ey > 1.0F);
}

}  // namespace stereo::core
