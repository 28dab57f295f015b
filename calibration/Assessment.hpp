// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string>
#include <vector>

#include "calibration/Calibrate.hpp"

namespace stereo::calibration {

/// Errors of one ring of angle off the axis.
struct RingErrors {
  Spread reprojection;  ///< pixels, both eyes, corners that the result rests on; angle off the eye's own axis
  Spread rows;          ///< pixels of the perspective view
  Spread latitude;      ///< rows as angles, in pixels of that view's middle (232 a radian); over the whole field
};

/// What is to be thought of a calibration.
struct Assessment {
  std::vector<RingErrors> rings;     ///< `ringCount`
  Spread rows;                       ///< perspective view, pixels
  Spread latitude;                   ///< as in the rings
  std::array<double, 2> coverage{};  ///< share of each eye's circle with corners, 0 to 1
  std::vector<std::string> faults;   ///< don't use it: what is wrong, and the remedy
  std::vector<std::string> advice;   ///< it could be better
};

/// @param eyeSize size of one eye's image, pixels.
Assessment assess(const Calibration& calibration, const cv::Size& eyeSize);

}  // namespace stereo::calibration
