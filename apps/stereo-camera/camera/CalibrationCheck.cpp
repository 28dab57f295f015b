// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/CalibrationCheck.hpp"

#include <vector>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/process/Failure.hpp"
#include "model/FileKeys.hpp"

namespace stereo::app {

namespace {

struct Expected {
  const char* key;
  int rows;
  int cols;
};

// In the order of `getCalibParams`.
constexpr Expected perEye[] = {
    {"IntrinsicMatrix", 3, 3}, {"DistortionCoefficients", 1, 4}, {"Xi", 1, 1}, {"Rotation", 3, 3}};

void append(std::string& list, const std::string& item) { list += (list.empty() ? "" : ", ") + item; }

}  // namespace

void checkCalibration(StereoCamera& camera, const std::string& file, bool complete) {
  std::string missing;
  std::string malformed;
  for (const bool isRight : {false, true}) {
    std::vector<cv::Mat> params;
    camera.getCalibParams(params, isRight);
    for (std::size_t k = 0; k < std::size(perEye); ++k) {
      const std::string key = (isRight ? "Right" : "Left") + std::string(perEye[k].key);
      if (params[k].empty()) {
        append(missing, key);
      } else if (params[k].type() != CV_64FC1 || params[k].rows != perEye[k].rows || params[k].cols < perEye[k].cols ||
                 !cv::checkRange(params[k])) {
        append(malformed, key);
      }
    }
    if (isRight && params[4].empty()) {
      append(missing, model::keys::translation);
    }
  }
  if (!missing.empty()) {
    throw Failure(ExitCode::calibration, "the calibration '" + file + "' is incomplete; missing: " + missing);
  }
  if (!malformed.empty()) {
    throw Failure(ExitCode::calibration,
                  "the calibration '" + file + "' is malformed; wrong shape, type or value: " + malformed);
  }
  if (!complete) {
    throw Failure(ExitCode::calibration,
                  "the calibration '" + file + "' is unreadable or lacks SerialNumber or PositonNumber");
  }
}

}  // namespace stereo::app
