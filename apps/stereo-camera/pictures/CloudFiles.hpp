// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <vector>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"

namespace stereo::app {

/// Writes a cloud as binary little-endian PLY: x, y, z in metres. Throws Failure (output) if it cannot be written.
void writePly(const std::filesystem::path& path, const std::vector<cv::Vec3f>& cloud);
/// As above, with red, green, blue of each point.
void writePly(const std::filesystem::path& path, const std::vector<PCL>& cloud);

/// Picture of a cloud (CV_8UC3) as seen by an eye that was swung round the cloud's middle by `degrees` (positive: to
/// the right); points in front hide those behind. Black where there is none.
cv::Mat renderCloud(const std::vector<PCL>& cloud, double degrees, cv::Size size);

}  // namespace stereo::app
