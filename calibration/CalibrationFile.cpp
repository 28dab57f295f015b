// SPDX-License-Identifier: Apache-2.0
#include "calibration/CalibrationFile.hpp"

#include <stdexcept>
#include <vector>

#include "StereoCamera.hpp"
#include "calibration/Rectification.hpp"
#include "model/CameraFacts.hpp"

namespace stereo::calibration {

void saveCalibration(const std::string& path, const StereoRig& rig, int frameWidth, const Label& label) {
  const std::array<cv::Matx33d, 2> turns = rectify(rig.rightFromLeft);
  StereoCamera camera(model::noDevice);
  camera.setSerialNumber(label.serialNumber);
  camera.setPosNumber(label.posNumber);
  camera.setRectFrameSize(label.rectFrameSize);
  std::vector<cv::Mat> written[2];
  for (const bool isRight : {false, true}) {
    const std::size_t which = isRight ? 1 : 0;
    const model::OmniModel eye = rig.eyes[which].scaled(static_cast<double>(model::fullFrameWidth) / frameWidth);
    const cv::Vec4d d = eye.distortion();
    written[which] = {cv::Mat(eye.intrinsic(), true), (cv::Mat_<double>(1, 4) << d[0], d[1], d[2], d[3]),
                      (cv::Mat_<double>(1, 1) << eye.xi), cv::Mat(turns[which], true),
                      cv::Mat(rig.rightFromLeft.translation, true)};
    camera.setCalibParams(written[which], isRight);
  }
  try {
    camera.saveCalibParams(path);
  } catch (const cv::Exception&) {
    throw std::runtime_error("cannot write '" + path + "'");
  }
  // The camera does not report whether the file could be written.
  StereoCamera again(model::noDevice);
  bool same = again.loadCalibParams(path);
  for (const bool isRight : {false, true}) {
    std::vector<cv::Mat> read;
    again.getCalibParams(read, isRight);
    for (std::size_t k = 0; same && k < 5; ++k) {
      const cv::Mat& value = written[isRight ? 1 : 0][k];
      same = read[k].size() == value.size() && cv::norm(read[k], value, cv::NORM_INF) <= 1e-9 * cv::norm(value);
    }
  }
  if (!same) {
    throw std::runtime_error("cannot write '" + path + "'");
  }
}

}  // namespace stereo::calibration
