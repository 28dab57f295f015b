// SPDX-License-Identifier: Apache-2.0
// The calibration for wide depth, from a file or a camera.
#include <memory>

#include "WideDepth.hpp"
#include "model/FileKeys.hpp"
#include "src/StereoCameraCommon/Storage.hpp"

namespace stereo {

namespace keys = model::keys;

WideDepthCalibration WideDepthCalibration::load(const std::string& file) {
  const auto refuse = [&](const char* why) { CV_Error(cv::Error::StsBadArg, "calibration '" + file + "': " + why); };
  WideDepthCalibration calibration;
  std::unique_ptr<cv::FileStorage> storage;
  try {
    storage = openForReading(file, EmptyFile::malformed);
  } catch (const cv::Exception&) {
    refuse("malformed, or empty");
  }
  if (storage == nullptr || !storage->isOpened()) {
    refuse("cannot be read");
  }
  const struct {
    const char* key;
    cv::Mat& matrix;
  } values[] = {{keys::leftXi, calibration.leftXi},
                {keys::leftIntrinsic, calibration.leftIntrinsic},
                {keys::leftDistortion, calibration.leftDistortion},
                {keys::leftRotation, calibration.leftRotation},
                {keys::rightXi, calibration.rightXi},
                {keys::rightIntrinsic, calibration.rightIntrinsic},
                {keys::rightDistortion, calibration.rightDistortion},
                {keys::rightRotation, calibration.rightRotation},
                {keys::translation, calibration.translation}};
  for (const auto& value : values) {
    try {
      value.matrix = readMatrix(*storage, value.key);
    } catch (const cv::Exception&) {
      refuse((std::string(value.key) + " is malformed").c_str());
    }
    if (value.matrix.empty()) {
      refuse((std::string(value.key) + " is missing").c_str());
    }
  }
  return calibration;
}

WideDepthCalibration WideDepthCalibration::from(const std::vector<cv::Mat>& left, const std::vector<cv::Mat>& right) {
  if (left.size() < 5 || right.size() < 5) {
    CV_Error(cv::Error::StsBadArg, "an eye's calibration has five matrices: K, D, xi, R, translation");
  }
  WideDepthCalibration calibration;
  calibration.leftIntrinsic = left[0].clone();
  calibration.leftDistortion = left[1].clone();
  calibration.leftXi = left[2].clone();
  calibration.leftRotation = left[3].clone();
  calibration.rightIntrinsic = right[0].clone();
  calibration.rightDistortion = right[1].clone();
  calibration.rightXi = right[2].clone();
  calibration.rightRotation = right[3].clone();
  calibration.translation = left[4].clone();
  return calibration;
}

}  // namespace stereo
