// SPDX-License-Identifier: Apache-2.0
// Vector kernels of depth: one row at a time.
#pragma once

#include <cstdint>

namespace stereo::core {

/// Disparities in pixels, and depths in meters, that count.
struct DepthLimits {
  float cutoff;  ///< disparities must be greater
  float nearest;
  float farthest;
};

/// Parameters of the angular depth b sin(pi (a + o)) / sin(pi d / W), a = (column - d) / W.
struct AngularModel {
  float b;   ///< baseline, meters
  float W;   ///< width of the view, pixels
  double o;  ///< offset of the view's first column, in units of pi
};

/// Smallest and largest depth so far, meters, separately for each pixel of a vector.
struct RangeLanes {
  static constexpr int count = 16;
  float min[count];
  float max[count];

  RangeLanes(float smallest, float largest);
  /// Widens [smallest, largest] to the range of all lanes.
  void widen(float& smallest, float& largest) const;
};

// All arrays hold `count` elements of one row and do not overlap.

/// Angular depth of the columns 0 to count - 1, a and d / W in single precision, the rest in double, rounded to float.
void angularRow(const float* d, int count, const AngularModel& model, float* z);

/// Metric depth: z, or 0 where z is outside the limits, or -1 where the disparity is not above the cutoff.
void metricRow(const float* d, const float* z, int count, const DepthLimits& limits, float* out);
/// The same for the pinhole depth z = fb / d in double, rounded to float; `fb` in pixels times meters.
void metricPinholeRow(const float* d, double fb, int count, const DepthLimits& limits, float* out);

/// Depth for painting: z, or 0 where d is not above 0 or z is outside the limits. Widens `lanes` to z, within the
/// limits or not, wherever d is above the cutoff.
void measureRow(const float* d, const float* z, int count, const DepthLimits& limits, float* depths, RangeLanes& lanes);
/// The same for the pinhole depth.
void measurePinholeRow(const float* d, double fb, int count, const DepthLimits& limits, float* depths,
                       RangeLanes& lanes);

/// Color of each depth on the scale from `lo` to `hi`, as the public `getclolor` defines it: blue in bits 0 to 7,
/// green in 8 to 15, red in 16 to 23; 0 where the depth is not above 0.
void colorRow(const float* depths, int count, float lo, float hi, std::uint32_t* colors);

}  // namespace stereo::core
