// SPDX-License-Identifier: Apache-2.0
// A host program's test by someone who installed the library: the simulated camera, and a replayed one.
#include <sim/SimulatedCamera.hpp>
#include <sources/ReplayCamera.hpp>

#include <iostream>

#include <opencv2/imgcodecs.hpp>

namespace {

cv::Mat nextFrame(StereoCamera& camera) {
  camera.startCapture(false, false);
  cv::Mat frame;
  std::chrono::microseconds timestamp{0};
  if (!camera.getRawFrame(frame, timestamp)) {
    frame.release();
  }
  camera.stopCapture();
  return frame;
}

}  // namespace

int main() {
  stereo::sim::SimulatedCamera::Options simulation;
  simulation.frameSize = {928, 400};
  simulation.moving = false;
  simulation.faults = stereo::sim::parseFaults("");
  stereo::sim::SimulatedCamera simulated(simulation);
  const cv::Mat seen = nextFrame(simulated);
  cv::imwrite("seen.png", seen);

  stereo::sources::ReplayCamera::Options recording;
  recording.path = "seen.png";
  recording.fisheyeRadius = simulated.fisheyeRadius();
  stereo::sources::ReplayCamera replayed(recording);
  const cv::Mat replay = nextFrame(replayed);

  const bool works = seen.size() == cv::Size(928, 400) && replay.size() == seen.size() &&
                     cv::norm(seen, replay, cv::NORM_INF) == 0 && cv::countNonZero(seen.reshape(1)) > 0;
  std::cout << (works ? "sources work" : "sources do not work") << std::endl;
  return works ? 0 : 1;
}
