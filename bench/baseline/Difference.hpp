// SPDX-License-Identifier: Apache-2.0
// Compares results bit for bit.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"

namespace stereo::baseline {

// Bit for bit, with one exception: all NaN are equal, whatever their sign and payload. Which operand's payload a sum
// keeps depends on the order of the operands in the instruction, and the language leaves that to the compiler.

/// Empty if the images have the same size, type and elements (CV_32F or CV_8U, any channels), otherwise a description
/// of the first difference.
std::string difference(const cv::Mat& expected, const cv::Mat& actual);

/// As above, for clouds.
std::string difference(const std::vector<cv::Vec3f>& expected, const std::vector<cv::Vec3f>& actual);
std::string difference(const std::vector<PCL>& expected, const std::vector<PCL>& actual);

}  // namespace stereo::baseline
