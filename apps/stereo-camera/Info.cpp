// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.hpp"
#include "Source.hpp"

namespace stereo::app {

namespace {

// Angle of a rotation matrix, degrees: acos((trace R - 1) / 2).
double rotationAngle(const cv::Mat& R) {
  const double cosine = (cv::trace(R)[0] - 1) / 2;
  return std::acos(std::min(1.0, std::max(-1.0, cosine))) * 180 / CV_PI;
}

void describeEye(StereoCamera& camera, bool isRight) {
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, isRight);
  const cv::Mat& K = params[0];
  const cv::Mat& D = params[1];
  std::printf("%-22s xi %.4f, focal length %.1f x %.1f px, centre (%.1f, %.1f) px, skew %.3f\n",
              isRight ? "right eye" : "left eye", params[2].at<double>(0, 0), K.at<double>(0, 0), K.at<double>(1, 1),
              K.at<double>(0, 2), K.at<double>(1, 2), K.at<double>(0, 1));
  std::printf("%-22s k1 %.5f, k2 %.5f, p1 %.5f, p2 %.5f; turned by %.2f degrees\n", "", D.at<double>(0, 0),
              D.at<double>(0, 1), D.at<double>(0, 2), D.at<double>(0, 3), rotationAngle(params[3]));
}

void info(const SourceOptions& options) {
  OpenedCamera opened = openCamera(options);
  StereoCamera& camera = *opened.camera;
  const cv::Size raw = camera.getRawFrameSize();
  std::printf("%-22s %s\n", "source", opened.description.c_str());
  std::printf("%-22s %d, position %d, serial number %d\n", "device", camera.getDeviceNode(), camera.getPosNumber(),
              camera.getSerialNumber());
  std::printf("%-22s %d x %d pixels at %.1f frames a second\n", "raw frame", raw.width, raw.height,
              static_cast<double>(camera.getRawFrameRate()));
  std::printf("%-22s %d x %d pixels, perspective field %.1f degrees\n", "rectified eye", opened.rectifiedSize.width,
              opened.rectifiedSize.height, opened.horizontalField);
  std::printf("%-22s key %d\n", "shared memory", camera.getPosNumber() + 9000);
  if (!opened.calibrated) {
    std::printf("%-22s none (--calibration FILE)\n", "calibration");
    return;
  }
  std::printf("%-22s for a raw frame 1856 pixels wide\n", "calibration");
  describeEye(camera, false);
  describeEye(camera, true);
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, false);
  std::printf("%-22s %.2f mm\n", "baseline", cv::norm(params[4], cv::NORM_L2));
}

}  // namespace

Action addInfo(CLI::App& program) {
  auto options = std::make_shared<SourceOptions>();
  CLI::App* const command = program.add_subcommand("info", "device, sizes, rate and calibration in short");
  options->addTo(*command);
  return [options] { info(*options); };
}

}  // namespace stereo::app
