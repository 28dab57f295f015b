// SPDX-License-Identifier: Apache-2.0
// The color scale of the depth picture.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// Low eight bits of `value` truncated to a 32-bit integer; 0 for values outside the integer's range and NaN.
unsigned char lowByte(double value);

/// See `getBlueSegVal`, `getGreenSegVal`, `getRedSegVal` and `getclolor` for domains and formulas.
unsigned char blueSegment(float lo, float hi, float v);
unsigned char greenSegment(float lo, float hi, float v);
unsigned char redSegment(float lo, float hi, float v);
cv::Vec3b depthColor(float lo, float hi, float v);

}  // namespace stereo::core
