// SPDX-License-Identifier: Apache-2.0
// Command info: facts about the camera.
#include <cmath>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/JsonOption.hpp"
#include "model/CameraFacts.hpp"
#include "model/Text.hpp"

namespace stereo::app {

using model::formatted;

namespace {

// Angle of a rotation matrix, degrees: acos((trace R - 1) / 2).
double rotationAngle(const cv::Mat& R) {
  const double cosine = (cv::trace(R)[0] - 1) / 2;
  return std::acos(std::min(1.0, std::max(-1.0, cosine))) * 180 / CV_PI;
}

struct InfoOptions {
  SourceOptions source;
  JsonOption json;
};

std::string fact(const char* name, const std::string& value) { return formatted("%-22s ", name) + value + "\n"; }

std::string describeEye(StereoCamera& camera, bool isRight, Json& json) {
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, isRight);
  const cv::Mat& K = params[0];
  const cv::Mat& D = params[1];
  const double xi = params[2].at<double>(0, 0);
  const double turn = rotationAngle(params[3]);
  json.object(isRight ? "right_eye" : "left_eye").add("xi", xi);
  json.list("focal_length_px").add("", K.at<double>(0, 0)).add("", K.at<double>(1, 1)).end();
  json.list("centre_px").add("", K.at<double>(0, 2)).add("", K.at<double>(1, 2)).end();
  json.add("skew", K.at<double>(0, 1)).list("distortion");
  for (int k = 0; k < 4; ++k) {
    json.add("", D.at<double>(0, k));
  }
  json.end().add("turn_degrees", turn).end();
  return fact(isRight ? "right eye" : "left eye",
              formatted("xi %.4f, focal length %.1f x %.1f px, center (%.1f, %.1f) px, skew %.3f", xi,
                        K.at<double>(0, 0), K.at<double>(1, 1), K.at<double>(0, 2), K.at<double>(1, 2),
                        K.at<double>(0, 1))) +
         fact("", formatted("k1 %.5f, k2 %.5f, p1 %.5f, p2 %.5f; turned by %.2f degrees", D.at<double>(0, 0),
                            D.at<double>(0, 1), D.at<double>(0, 2), D.at<double>(0, 3), turn));
}

void info(const InfoOptions& options) {
  options.json.check();
  OpenedCamera opened = openCamera(options.source);
  StereoCamera& camera = *opened.camera;
  const cv::Size raw = camera.getRawFrameSize();
  const auto rate = static_cast<double>(camera.getRawFrameRate());
  const int position = camera.getPosNumber();
  const int key = position + model::firstSegmentKey;
  Json json;
  json.add("source", opened.description).add("device", camera.getDeviceNode()).add("position", position);
  json.add("serial_number", camera.getSerialNumber());
  json.object("raw_frame").add("width", raw.width).add("height", raw.height).add("rate", rate).end();
  json.object("rectified_eye")
      .add("width", opened.camera->rectFrameSize().width)
      .add("height", opened.camera->rectFrameSize().height);
  json.add("perspective_field_degrees", opened.camera->horizontalField()).end().add("shared_memory_key", key);
  json.add("calibrated", opened.calibrated);
  std::string text =
      fact("source", opened.description) +
      fact("device",
           formatted("%d, position %d, serial number %d", camera.getDeviceNode(), position, camera.getSerialNumber())) +
      fact("raw frame", formatted("%d x %d pixels at %.1f frames a second", raw.width, raw.height, rate)) +
      fact("rectified eye",
           formatted("%d x %d pixels, perspective field %.1f degrees", opened.camera->rectFrameSize().width,
                     opened.camera->rectFrameSize().height, opened.camera->horizontalField())) +
      fact("shared memory", "key " + std::to_string(key));
  if (opened.calibrated) {
    std::vector<cv::Mat> params;
    camera.getCalibParams(params, false);
    const double baseline = cv::norm(params[4], cv::NORM_L2);
    text += fact("calibration", "for a raw frame 1856 pixels wide");
    text += describeEye(camera, false, json);
    text += describeEye(camera, true, json);
    text += fact("baseline", formatted("%.2f mm", baseline));
    json.add("baseline_mm", baseline);
  } else {
    text += fact("calibration", "none (--calibration FILE)");
  }
  if (!options.json.replacesText()) {
    results() << text;
  }
  options.json.write(json);
}

}  // namespace

Action addInfo(CLI::App& program) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* const command = program.add_subcommand("info", "summary of device, sizes, rate and calibration");
  addSourceOptions(*command, options->source, {.plays = false, .scene = false, .rectified = true});
  addJsonOption(*command, options->json);
  return [options] { info(*options); };
}

}  // namespace stereo::app
