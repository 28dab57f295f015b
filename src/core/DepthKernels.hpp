// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace stereo::core {

/// Which disparities count, pixels, and which depths, metres.
struct DepthLimits {
  float cutOff;  ///< disparities must be above it
  float nearest;
  float farthest;
};

/// Smallest and largest depth met so far, metres, kept apart for each of the places that are worked on at once.
struct RangeLanes {
  static constexpr int count = 16;
  float min[count];
  float max[count];

  RangeLanes(float smallest, float largest);
  /// Widens [smallest, largest] to what the lanes have met.
  void widen(float& smallest, float& largest) const;
};

/// Metric depth of a row of disparities: z = fb / d in double, rounded to float, `fb` in pixels times metres; 0 where z
/// is out of limits, -1 where d is not above the cut-off. The arrays do not overlap.
void metricPinholeRow(const float* d, int count, double fb, const DepthLimits& limits, float* out);

/// The same depth for painting: 0 where d is not above 0 or z is out of limits. `lanes` are widened to z, limits or
/// not, wherever d is above the cut-off. The arrays do not overlap.
void measurePinholeRow(const float* d, int count, double fb, const DepthLimits& limits, float* depths,
                       RangeLanes& lanes);

/// Colour of each depth on the scale from `lo` to `hi`, as the public `getclolor` defines it: blue in bits 0 to 7,
/// green in 8 to 15, red in 16 to 23; 0 where the depth is not above 0. The arrays do not overlap.
void colourRow(const float* depths, int count, float lo, float hi, std::uint32_t* colours);

}  // namespace stereo::core
