// SPDX-License-Identifier: Apache-2.0
// Reads pictures from a camera and writes them to files.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"

namespace stereo::app {

/// What the colors of a picture mean, from the least value to the most.
struct ColorScale {
  double least = 0;               ///< meters
  double most = 0;                ///< meters
  std::vector<cv::Vec3b> colors;  ///< blue, green, red at equal steps of the value
  bool logarithmic = false;       ///< at equal steps of its logarithm instead
};

/// One picture and its file.
struct Picture {
  std::string file;     ///< name within the output folder
  std::string title;    ///< "Raw frame"
  std::string caption;  ///< what it shows
  cv::Mat image;
  std::optional<ColorScale> scale = {};  ///< for colored depth
  std::vector<std::pair<cv::Vec3b, std::string>> legend =
      {};  ///< for other colors: blue, green, red, and what it means
};

/// Pictures under one heading of a page.
struct Section {
  std::string heading;
  std::string note;  ///< what is to be known about them; may be empty
  std::vector<Picture> pictures;
};

/// Reads one of each picture, each from a frame of its own, and appends it to the pictures. Throws Failure if nothing
/// comes, Ended if the source is over before all are read.
void readPictures(OpenedCamera& opened, Watchdog& watch, std::vector<Picture>& pictures);

/// Reads the eyes of the next frame. Throws Failure (noFrames) if nothing comes, or not two color pictures of one size.
void readEyes(StereoCamera& camera, Watchdog& watch, cv::Mat& left, cv::Mat& right);

/// Writes the pictures. Throws Failure (output) if one cannot be written.
void writePictures(const std::vector<Picture>& pictures, const std::filesystem::path& folder);

/// Starts capture, by default without stream and shared memory. Throws Failure if the calibration or a size makes it
/// fail.
void startCapture(OpenedCamera& opened, bool useTransmit = false, bool useShareMemory = false);

}  // namespace stereo::app
