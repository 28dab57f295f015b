// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace stereo::core {

/// Which disparities count, pixels, and which depths, meters.
struct DepthLimits {
  float cutOff;  ///< disparities must be above it
  float nearest;
  float farthest;
};

/// Angular depth, b sin(pi (a + o)) / sin(pi d / W), a = (column - d) / W: everything but disparity and column.
struct AngularModel {
  float b;   ///< baseline, meters
  float W;   ///< width of the view, pixels
  double o;  ///< offset of the view's first column, in units of pi
};

/// Smallest and largest depth met so far, meters, kept apart for each of the places that are worked on at once.
struct RangeLanes {
  static constexpr int count = 16;
  float min[count];
  float max[count];

  RangeLanes(float smallest, float largest);
  /// Widens [smallest, largest] to what the lanes have met.
  void widen(float& smallest, float& largest) const;
};

// In all of these the arrays hold `count` elements of one row and do not overlap.

/// Angular depth of the columns 0 to count - 1, a and d / W in single precision, the rest in double, rounded to float.
void angularRow(const float* d, int count, const AngularModel& model, float* z);

/// Metric depth: z, or 0 where z is out of limits, or -1 where the disparity is not above the cut-off.
void metricRow(const float* d, const float* z, int count, const DepthLimits& limits, float* out);
/// The same of the pinhole depth z = fb / d in double, rounded to float; `fb` in pixels times meters.
void metricPinholeRow(const float* d, double fb, int count, const DepthLimits& limits, float* out);

/// Depth for painting: z, or 0 where d is not above 0 or z is out of limits. `lanes` are widened to z, limits or not,
/// wherever d is above the cut-off.
void measureRow(const float* d, const float* z, int count, const DepthLimits& limits, float* depths, RangeLanes& lanes);
/// The same of the pinhole depth.
void measurePinholeRow(const float* d, double fb, int count, const DepthLimits& limits, float* depths,
                       RangeLanes& lanes);

/// Color of each depth on the scale from `lo` to `hi`, as the public `getclolor` defines it: blue in bits 0 to 7,
/// green in 8 to 15, red in 16 to 23; 0 where the depth is not above 0.
void colorRow(const float* depths, int count, float lo, float hi, std::uint32_t* colors);

}  // namespace stereo::core
