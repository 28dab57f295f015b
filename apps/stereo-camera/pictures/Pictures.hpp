// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"

namespace stereo::app {

/// What the colors of a picture mean, from the least value to the most.
struct ColorScale {
  double least = 0;               ///< metres
  double most = 0;                ///< metres
  std::vector<cv::Vec3b> colors;  ///< blue, green, red at equal steps of the value
};

/// One picture that was read and where it was written.
struct Picture {
  std::string file;     ///< name within the output folder
  std::string title;    ///< "Raw frame"
  std::string caption;  ///< what one sees
  cv::Mat image;
  std::optional<ColorScale> scale = {};  ///< of colored depth
};

/// Reads one of each product, each from a frame of its own, and appends it to the pictures. Throws Failure where
/// nothing comes, Ended where the source is over before all have come.
void readPictures(OpenedCamera& opened, Watchdog& watch, std::vector<Picture>& pictures);

/// Reads the next frame's eyes. Throws Failure (noFrames) where nothing comes, or no two pictures of one size in
/// colour.
void readEyes(StereoCamera& camera, Watchdog& watch, cv::Mat& left, cv::Mat& right);

/// Writes the pictures. Throws Failure (output) if one cannot be written.
void writePictures(const std::vector<Picture>& pictures, const std::filesystem::path& folder);

/// Starts capture, by default without stream and shared memory; turns what the calibration or a size makes fail into a
/// Failure.
void startCapture(OpenedCamera& opened, bool useTransmit = false, bool useShareMemory = false);

}  // namespace stereo::app
