// SPDX-License-Identifier: Apache-2.0
// Point clouds as PLY files and as pictures.
#pragma once

#include <filesystem>
#include <vector>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"

namespace stereo::app {

/// Writes a cloud as binary little-endian PLY: x, y, z in meters. Throws Failure (output) if it cannot be written.
void writePly(const std::filesystem::path& path, const std::vector<cv::Vec3f>& cloud);
/// As above, with red, green, blue of each point.
void writePly(const std::filesystem::path& path, const std::vector<PCL>& cloud);

/// Picture of a cloud (CV_8UC3) from a viewpoint swung around the cloud's middle by `degrees` (positive: to the right).
/// Points in front hide those behind; black where there are none.
cv::Mat renderCloud(const std::vector<PCL>& cloud, double degrees, cv::Size size);

}  // namespace stereo::app
