// SPDX-License-Identifier: Apache-2.0
// Board pictures for calibrate, from a folder or a camera.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/process/RunTime.hpp"
#include "calibration/BoardGeometry.hpp"

namespace stereo::app {

/// Pictures of a board and what was found in them.
struct BoardPictures {
  std::vector<calibration::BoardView> views;  ///< at least one eye shows the board
  cv::Size eyeSize;                           ///< pixels
  std::string source;
  std::function<cv::Mat(std::size_t)> picture;  ///< of a view, side by side, CV_8UC3; empty if unreadable
};

/// Looks for the board in every image of a folder, with a line of progress each. Throws Failure if no image is readable
/// (source), or if sizes differ or a width is odd (problems).
BoardPictures readBoards(const std::filesystem::path& folder, const calibration::Board& board);

struct LiveOptions {
  SourceOptions source;
  int pictures = 30;
  double patience = 10;  ///< seconds without a frame after which to give up
  double idle = 120;     ///< seconds without a new picture after which to continue with those so far
  std::string keep;      ///< folder for the pictures, written as they are taken
};

/// Takes pictures of the board from a camera until there are enough, nothing new comes or the user ends it, with a line
/// of progress for each and for what prevents the next one. Throws Failure.
BoardPictures takeBoards(const LiveOptions& options, const calibration::Board& board);

}  // namespace stereo::app
