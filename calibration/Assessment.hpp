// SPDX-License-Identifier: Apache-2.0
// Judges a calibration: errors by ring, coverage, problems and advice.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "calibration/Calibrate.hpp"

namespace stereo::calibration {

/// Errors of one ring of angle off the axis.
struct RingErrors {
  Spread reprojection;  ///< pixels, both eyes, corners used; angle off the eye's own axis
  Spread rows;          ///< pixels of the perspective view
  Spread latitude;      ///< rows as angles over the whole field, in pixels of that view's middle (232 per radian)
};

/// How good a calibration is.
struct Assessment {
  std::vector<RingErrors> rings;     ///< `ringCount`
  Spread rows;                       ///< perspective view, pixels
  Spread latitude;                   ///< as in the rings
  std::array<double, 2> coverage{};  ///< share of each eye's circle with corners, 0 to 1
  std::vector<std::string> faults;   ///< why not to use it, with remedies
  std::vector<std::string> advice;   ///< how it could be better
};

/// @param eyeSize size of one eye's image, pixels.
Assessment assess(const Calibration& calibration, const cv::Size& eyeSize);

}  // namespace stereo::calibration
