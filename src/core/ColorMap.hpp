// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// Low eight bits of `value` converted to a 32-bit integer (truncating). What no such integer holds, NaN included,
/// gives 0.
unsigned char lowByte(double value);

/// See the public functions of the same meaning for domains and formulas.
unsigned char blueSegment(float lo, float hi, float v);
unsigned char greenSegment(float lo, float hi, float v);
unsigned char redSegment(float lo, float hi, float v);
cv::Vec3b depthColor(float lo, float hi, float v);

}  // namespace stereo::core
