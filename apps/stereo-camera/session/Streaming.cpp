// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/session/Streaming.hpp"

#include <string>
#include <vector>

#include "apps/stereo-camera/doctor/SystemChecks.hpp"
#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

namespace {

constexpr double defaultRate = 30;  // frames a second, for the encoder where the rate is left to the source
constexpr int perspectivePair = 2;  // the depth mode that is streamed
constexpr int firstRectifiedMode = 2;

}  // namespace

void prepareStream(OpenedCamera& opened, int mode, double rate, int receiver) {
  if (mode >= firstRectifiedMode && !opened.calibrated) {
    throw Failure(ExitCode::calibration, "stream mode " + std::to_string(mode) +
                                             " shows rectified pictures: it needs a calibration (--calibration FILE)");
  }
  opened.camera->setStream(mode, rate > 0 ? rate : defaultRate, receiver);
  if (mode == depthStream) {
    opened.camera->setDepthMode(perspectivePair);
  }
  if (const std::vector<std::string> missing = missingStreamElements(); !missing.empty()) {
    throw Failure(ExitCode::output, "cannot stream: GStreamer has no element " + missing.front() + ": " +
                                        streamRemedy(missing.front()) + " (docs/streaming.md)");
  }
}

bool readForStream(StereoCamera& camera, int mode, cv::Mat& a, cv::Mat& b) {
  std::chrono::microseconds timestamp{0};
  if (mode == depthStream) {
    return camera.getDepthFrame(a, true, timestamp);
  }
  return mode < firstRectifiedMode ? camera.getRawFrame(a, timestamp) : camera.getRectStereoFrame(a, b);
}

}  // namespace stereo::app
