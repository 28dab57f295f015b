// SPDX-License-Identifier: Apache-2.0
// Reads disparity, depth and clouds from a camera and writes them to files.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/stereo-camera/pictures/Pictures.hpp"

namespace stereo::app {

/// Everything made from one disparity, or from those right after it.
struct DepthResults {
  cv::Mat disparity;                     ///< CV_32FC1, pixels; negative where there is no match
  cv::Mat metric;                        ///< CV_32FC1, meters; 0 out of limits, -1 without a match
  cv::Mat color;                         ///< CV_8UC3, rotated by 180 degrees
  std::optional<ColorScale> colorScale;  ///< none if the picture is of another disparity (busy machine)
  std::vector<cv::Vec3f> plain;
  std::vector<PCL> colored;
};

/// Starts the disparity worker and reads one of each; the worker keeps running. Throws Failure if nothing comes.
DepthResults readDepth(OpenedCamera& opened, Watchdog& watch);

/// Writes disparity.tiff, depth.png (16 bits, millimeters), depth.tiff (float, meters), cloud.ply and
/// cloud-coloured.ply. Returns the pictures to show, which it does not write. Throws Failure (output).
std::vector<Picture> writeDepth(const DepthResults& products, const std::filesystem::path& folder);

/// Names and contents of the files that `writeDepth` writes.
std::vector<std::pair<std::string, std::string>> depthFiles();

}  // namespace stereo::app
