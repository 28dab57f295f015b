// SPDX-License-Identifier: Apache-2.0
// The results of calibrate: facts, JSON, HTML page and pictures.
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

/// What the report is made of.
struct CalibrationStory {
  const calibration::Calibration& result;
  const calibration::Assessment& assessment;
  calibration::Board board;
  cv::Size eyeSize;
  std::string source;                           ///< "pictures of boards/"
  std::function<cv::Mat(std::size_t)> picture;  ///< side-by-side picture of a view, CV_8UC3; may be empty
};

/// Facts about a calibration, name and value, for the terminal and the page.
std::vector<std::pair<std::string, std::string>> calibrationFacts(const CalibrationStory& story);

/// The same as figures, with problems and advice.
Json calibrationFigures(const CalibrationStory& story);

/// The page as HTML, with its pictures embedded.
std::string calibrationPage(const CalibrationStory& story);

/// Both eyes side by side (CV_8UC3) with every corner found, as dots colored from green (fits) over yellow to red (a
/// pixel off or rejected), and circles every 30 degrees off the axis.
cv::Mat coveragePicture(const CalibrationStory& story);

/// The pair of one view, rectified as the camera does by default but twice as large, with lines across both eyes.
cv::Mat rectifiedPicture(const CalibrationStory& story, std::size_t view);

}  // namespace stereo::app
