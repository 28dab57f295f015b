// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/output/Json.hpp"
#include "calibration/Assessment.hpp"
#include "calibration/Calibrate.hpp"

namespace stereo::app {

/// What the report is made from.
struct CalibrationStory {
  const calibration::Calibration& result;
  const calibration::Assessment& assessment;
  calibration::Board board;
  cv::Size eyeSize;
  std::string source;                           ///< "pictures of boards/"
  std::function<cv::Mat(std::size_t)> picture;  ///< side-by-side picture of a view, CV_8UC3; may be empty
};

/// Facts of a calibration, name and value, for the terminal and the page.
std::vector<std::pair<std::string, std::string>> calibrationFacts(const CalibrationStory& story);

/// The figures of the same, with what is good and bad about it.
Json calibrationFigures(const CalibrationStory& story);

/// The page, complete in itself: its pictures are part of it.
std::string calibrationPage(const CalibrationStory& story);

/// Both eyes side by side (CV_8UC3) with every corner that was found, as dots coloured from green (fits) over yellow to
/// red (a pixel off or thrown out), and circles every 30 degrees off the axis.
cv::Mat coveragePicture(const CalibrationStory& story);

/// The pair of one view rectified as the camera does it by default but twice as large, with lines across both eyes.
cv::Mat rectifiedPicture(const CalibrationStory& story, std::size_t view);

}  // namespace stereo::app
