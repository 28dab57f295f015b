// SPDX-License-Identifier: Apache-2.0
// Stops a robot before it hits what is ahead: something nearer than 0.4 m, or too much that cannot be measured.
//
//   stereo-camera-stop-at DEVICE CALIBRATION     the camera /dev/videoDEVICE
//   stereo-camera-stop-at                        the simulated camera, 20 frames
//
// Prints "go" or "stop" whenever that changes, where a robot would be told.
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>
#include <string>

#include <ReadLimit.hpp>
#include <StereoCamera.hpp>
#include <WideDepth.hpp>

#include "sim/SimulatedCamera.hpp"

namespace {

constexpr float stopAt = 0.4F;                      // meters
constexpr float clearAt = 0.5F;                     // meters; more than `stopAt`, so that it does not flutter
constexpr double ahead = 0.94;                      // cosine of 20 degrees: the cone that the robot drives into
constexpr double speck = 0.002;                     // share of the cone that may be near without meaning anything
constexpr std::chrono::milliseconds warmUp(30000);  // until the first frame
constexpr std::chrono::milliseconds patience(500);  // without a frame
constexpr double blind = 0.5;                       // share of the cone that must be measured to go

// What the cone ahead looks like.
struct Ahead {
  double near = 0;      // share of its pixels nearer than the limit, or too near to measure
  double measured = 0;  // share of its pixels with a range
};

Ahead lookAhead(const stereo::WideDepthImage& image, const cv::Mat& rays, float limit) {
  int pixels = 0;
  int near = 0;
  int measured = 0;
  for (int row = 0; row < rays.rows; ++row) {
    for (int col = 0; col < rays.cols; ++col) {
      if (rays.at<cv::Vec3f>(row, col)[2] < ahead) {
        continue;
      }
      const float range = image.range.at<float>(row, col);
      const auto state = static_cast<stereo::RangeState>(image.state.at<unsigned char>(row, col));
      ++pixels;
      measured += range > 0 ? 1 : 0;
      near += (range > 0 && range < limit) || state == stereo::RangeState::tooNear ? 1 : 0;
    }
  }
  return {static_cast<double>(near) / pixels, static_cast<double>(measured) / pixels};
}

// Reads until the camera delivers no more, or for `frames`.
void drive(StereoCamera& camera, const stereo::WideDepthCalibration& calibration, int frames) {
  camera.startCapture(false, false);
  std::unique_ptr<stereo::WideDepth> wide;
  stereo::WideDepthImage image;
  cv::Mat left;
  cv::Mat right;
  std::chrono::microseconds timestamp{0};
  bool going = false;
  for (int k = 0; k < frames; ++k) {
    const ReadLimit limit(k == 0 ? warmUp : patience);  // else a stalled camera would leave the robot going
    if (!camera.getStereoFrame(left, right, timestamp)) {
      break;
    }
    if (!wide) {
      wide = std::make_unique<stereo::WideDepth>(calibration, left.size());
    }
    wide->compute(left, right, image);
    const Ahead seen = lookAhead(image, wide->rays(), going ? stopAt : clearAt);
    const bool go = seen.near < speck && seen.measured > blind;
    if (go != going || k == 0) {
      std::cout << (go ? "go" : "stop") << ": " << static_cast<int>(100 * seen.near) << " % of what is ahead is near, "
                << static_cast<int>(100 * seen.measured) << " % measured" << std::endl;
    }
    going = go;
  }
  std::cout << "stop: no more frames" << std::endl;
  camera.stopCapture();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 1 && argc != 3) {
    std::cerr << "stereo-camera-stop-at [DEVICE CALIBRATION]" << std::endl;
    return 2;
  }
  try {
    if (argc == 3) {
      char* end = nullptr;
      const long node = std::strtol(argv[1], &end, 10);
      StereoCamera camera(static_cast<int>(node));
      if (*argv[1] == '\0' || *end != '\0' || !camera.isOpened()) {
        std::cerr << "cannot open /dev/video" << argv[1] << std::endl;
        return 1;
      }
      camera.setRawFrameSize({1856, 800});  // also sets the image circle: without it the pictures are black
      drive(camera, stereo::WideDepthCalibration::load(argv[2]), std::numeric_limits<int>::max());
    } else {
      stereo::sim::SimulatedCamera camera({});
      camera.prepare([](std::size_t, std::size_t) {});  // or rendering would look like a stall
      const std::string file =
          std::filesystem::temp_directory_path() / ("stop-at-" + std::to_string(getpid()) + ".yml");
      camera.rig().saveCalibration(file);
      const auto calibration = stereo::WideDepthCalibration::load(file);
      std::filesystem::remove(file);
      drive(camera, calibration, 20);
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << std::endl;
    return 1;
  }
  return 0;
}
