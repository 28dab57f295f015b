// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/stereo-camera/pictures/Pictures.hpp"

namespace stereo::app {

/// Everything that comes from one disparity, or from the ones right after it.
struct DepthResults {
  cv::Mat disparity;                      ///< CV_32FC1, pixels; negative where there is no match
  cv::Mat metric;                         ///< CV_32FC1, metres; 0 out of limits, -1 without a match
  cv::Mat colour;                         ///< CV_8UC3, turned by 180 degrees
  std::optional<ColorScale> colourScale;  ///< none where a busy machine made the picture from another disparity
  std::vector<cv::Vec3f> plain;
  std::vector<PCL> coloured;
};

/// Starts the disparity worker and reads one of each; the worker goes on running. Throws Failure where nothing comes.
DepthResults readDepth(OpenedCamera& opened, Watchdog& watch);

/// Writes disparity.tiff, depth.png (16 bits, millimetres), depth.tiff (float, metres), cloud.ply and
/// cloud-coloured.ply; returns the pictures to show, which still have to be written. Throws Failure (output).
std::vector<Picture> writeDepth(const DepthResults& products, const std::filesystem::path& folder);

/// Names of the files of `writeDepth` that are not pictures to show, with what they hold.
std::vector<std::pair<std::string, std::string>> depthFiles();

}  // namespace stereo::app
