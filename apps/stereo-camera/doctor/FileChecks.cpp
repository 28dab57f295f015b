// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/doctor/FileChecks.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>

#include <opencv2/core.hpp>

#include "WideDepth.hpp"
#include "apps/stereo-camera/camera/CalibrationCheck.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "model/CameraFacts.hpp"
#include "model/FileKeys.hpp"
#include "model/Text.hpp"

namespace stereo::app {

using model::formatted;

namespace {

bool isReadable(const std::string& path) { return !std::filesystem::is_directory(path) && std::ifstream(path).good(); }

bool isMissing(const std::string& path) {
  std::error_code failure;
  return !std::filesystem::exists(path, failure) && !failure;
}

// Values of a file that the camera has already loaded, so it is safe to parse.
class Values {
public:
  explicit Values(const std::string& path) : m_storage(path, cv::FileStorage::READ) {}

  std::vector<std::string> names() const { return m_storage.root().keys(); }
  bool has(const char* name) const { return !m_storage[name].empty(); }
  double number(const char* name, int column = 0) const {
    const cv::Mat value = m_storage[name].mat();
    cv::Mat doubles;
    value.convertTo(doubles, CV_64F);
    return column < doubles.cols ? doubles.at<double>(0, column) : std::nan("");
  }

private:
  cv::FileStorage m_storage;
};

void checkRange(Findings& findings, const Values& values, const char* name, double least, double most,
                const char* instead) {
  if (!values.has(name)) {
    return;
  }
  const double value = values.number(name);
  const std::string what = formatted("settings: \"%s\" is %g", name, value);
  const bool well = value >= least && value <= most;
  add(findings, what, well ? "" : formatted("set it from %g to %g; the camera uses %s instead", least, most, instead));
}

void checkNames(Findings& findings, const Values& values) {
  static const std::set<std::string> known = {
      model::keys::logLevel,  model::keys::deviceNode, model::keys::frameSize, model::keys::rectifyFrameSize,
      model::keys::frameRate, model::keys::threshold,  model::keys::algorithm, model::keys::ipLastSegment,
      model::keys::hFov,      model::keys::transrate,  model::keys::transmode, model::keys::depthmode,
      model::keys::reserved};
  for (const std::string& name : values.names()) {
    if (known.count(name) == 0) {
      add(findings, "settings: unknown name \"" + name.substr(0, 60) + "\"",
          "check the spelling, including capitals, or remove it");
    }
  }
}

void checkFrameSizes(Findings& findings, const Values& values) {
  if (values.has(model::keys::frameSize)) {
    const double width = values.number(model::keys::frameSize, 0);
    const double height = values.number(model::keys::frameSize, 1);
    const bool known = (width == 1856 && height == 800) || (width == 928 && height == 400);
    add(findings, formatted("settings: \"FrameSize\" is %g x %g", width, height),
        known ? "" : "the camera delivers 1856 x 800 or 928 x 400; without the image circle nothing is masked");
  }
  if (!values.has(model::keys::rectifyFrameSize)) {
    add(findings, "settings: no \"RectifyFrameSize\"",
        "set it, for example to 464 x 400: without it there are no maps, and depth ends the process");
    return;
  }
  const double width = values.number(model::keys::rectifyFrameSize, 0);
  const double height = values.number(model::keys::rectifyFrameSize, 1);
  const bool well = width >= 1 && height >= 1 && width <= 4096 && height <= 4096;
  add(findings, formatted("settings: \"RectifyFrameSize\" is %g x %g", width, height),
      well ? "" : "set the width and height of one rectified eye, in pixels");
}

void checkEye(Findings& findings, StereoCamera& camera, bool isRight) {
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, isRight);
  const char* const eye = isRight ? "right" : "left";
  const cv::Mat& K = params[0];
  const double fx = K.at<double>(0, 0);
  const double fy = K.at<double>(1, 1);
  const bool focal = fx > 100 && fx < 4000 && fy > 100 && fy < 4000 && std::abs(fx / fy - 1) < 0.1;
  add(findings, formatted("calibration: %s eye's focal length %.1f x %.1f pixels", eye, fx, fy),
      focal ? "" : "expected for raw frames 1856 pixels wide: 100 to 4000 pixels, both nearly equal; calibrate again");
  const double cx = K.at<double>(0, 2);
  const double cy = K.at<double>(1, 2);
  const bool center = cx > 232 && cx < 696 && cy > 200 && cy < 600;
  add(findings, formatted("calibration: %s eye's center (%.1f, %.1f)", eye, cx, cy),
      center ? "" : "expected in the middle half of an eye of 928 x 800; was the file made for another frame size?");
  const double xi = params[2].at<double>(0, 0);
  add(findings, formatted("calibration: %s eye's xi %.4f", eye, xi),
      xi > 0 && xi < 4 ? "" : "a fisheye's mirror parameter is above 0 and below 4; calibrate again");
  const cv::Mat& R = params[3];
  const double off = cv::norm(R * R.t() - cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF);
  const bool rotation = off < 1e-4 && cv::determinant(R) > 0;
  add(findings, formatted("calibration: %s eye's rotation is orthonormal to %.1g", eye, off),
      rotation ? "" : "its rows must be unit vectors at right angles, right-handed; copy it with all its digits");
}

// What wide depth can be expected to reach with eyes `baseline` millimeters apart, in its default view. An error of the
// disparity by e radians changes a range r ahead by about r^2 e / baseline.
std::string expectedReach(double baseline) {
  const WideDepthOptions view;
  constexpr double pixels = 0.05;  // error of the disparity on a textured surface
  const double e = pixels * view.horizontalField / view.size.width * CV_PI / 180;
  const auto percent = [&](double meters) { return 100 * meters * e / (baseline / 1000); };
  return formatted(
      "wide depth: from about %.2f m; with %.1f pixels a degree expect errors of %.1f %% at 1 m, %.1f %% at 5 m",
      std::max(view.nearest, 1.2 * baseline / 1000), view.size.width / view.horizontalField, percent(1), percent(5));
}

}  // namespace

Findings checkSettingsFile(const std::string& path) {
  Findings findings;
  if (isMissing(path)) {
    add(findings, "settings: no such file '" + path + "'", "give an existing file: see ls");
    return findings;
  }
  StereoCamera camera(model::noDevice);
  if (!isReadable(path) || !camera.loadConfig(path)) {
    add(findings, "settings: '" + path + "' does not load",
        "see docs/keys.md for the format; \"DeviceNode\" is required");
    return findings;
  }
  add(findings, "settings: '" + path + "' loads");
  const Values values(path);
  checkNames(findings, values);
  checkFrameSizes(findings, values);
  checkRange(findings, values, model::keys::frameRate, 1, 1000, "this value");
  checkRange(findings, values, model::keys::hFov, 60, 140, "90");
  checkRange(findings, values, model::keys::transmode, -1, 4, "-1");
  checkRange(findings, values, model::keys::depthmode, 1, 2, "1");
  checkRange(findings, values, model::keys::transrate, 0, static_cast<double>(camera.getRawFrameRate()),
             "the frame rate");
  checkRange(findings, values, model::keys::ipLastSegment, 1, 254, "this value");
  checkRange(findings, values, model::keys::algorithm, 0, 1, "no matcher");
  return findings;
}

Findings checkCalibrationFile(const std::string& path) {
  Findings findings;
  if (isMissing(path)) {
    add(findings, "calibration: no such file '" + path + "'", "give an existing file: see ls");
    return findings;
  }
  StereoCamera camera(model::noDevice);
  try {
    checkCalibration(camera, path, isReadable(path) && camera.loadCalibParams(path));
  } catch (const Failure& failure) {
    add(findings, "calibration: " + std::string(failure.what()), "calibrate, or copy the file again");
    return findings;
  }
  add(findings, "calibration: '" + path + "' is complete");
  checkEye(findings, camera, false);
  checkEye(findings, camera, true);
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, false);
  const double baseline = cv::norm(params[4], cv::NORM_L2);
  const bool isBaseline = baseline >= 10 && baseline <= 500;
  add(findings, formatted("calibration: baseline %.2f mm", baseline),
      isBaseline ? "" : "expected 10 to 500: the translation is in millimeters");
  if (isBaseline) {
    add(findings, expectedReach(baseline));
  }
  return findings;
}

}  // namespace stereo::app
