// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "StereoCamera.hpp"
#include "apps/Program.hpp"
#include "device/Pattern.hpp"
#include "support/Await.hpp"

namespace stereo::test {

/// The guest's devices: frames of the feeder, and a camera made by the kernel (640 x 480 and others, never 1856 x 800).
constexpr int loopbackDevice = 0;
constexpr int kernelDevice = 1;

inline const cv::Size fullSize(1856, 800);
inline const cv::Size halfSize(928, 400);

/// Plays the camera on the loopback device while it lives.
class Feeder {
public:
  Feeder(cv::Size size, double rate, std::vector<std::string> more = {})
      : m_program(STEREO_CAMERA_FEEDER, arguments(size, rate, std::move(more))) {
    if (!await([this] { return m_program.out() == "feeding\n"; }, std::chrono::seconds(30))) {
      throw std::runtime_error("the feeder does not feed: " + m_program.err());
    }
  }

  void pause() const { m_program.send(SIGSTOP); }
  void resume() const { m_program.send(SIGCONT); }
  /// The device is closed under whoever reads it.
  void end() {
    m_program.send(SIGKILL);
    m_program.wait(std::chrono::seconds(10));
  }
  /// The feeder's own end, where it was told to stop: its exit code.
  int wait() { return m_program.wait(); }

private:
  static std::vector<std::string> arguments(cv::Size size, double rate, std::vector<std::string> more) {
    more.insert(more.begin(),
                {"/dev/video0", std::to_string(size.width) + "x" + std::to_string(size.height), std::to_string(rate)});
    return more;
  }

  Program m_program;
};

/// The kernel's camera is there, or not, as long as this says so; it is there again at the end.
class Plug {
public:
  ~Plug() { plugIn(); }
  static bool isIn() { return access("/dev/video1", R_OK) == 0; }
  static bool pull() {
    tell("unbind");
    return await([] { return !isIn(); }, std::chrono::seconds(10));
  }
  static bool plugIn() {
    if (!isIn()) {
      tell("bind");
    }
    return await(isIn, std::chrono::seconds(10));
  }

private:
  static void tell(const std::string& what) {
    std::ofstream file("/sys/bus/platform/drivers/vivid/" + what);
    file << "vivid.0" << std::endl;
  }
};

/// A camera on a real device, with its device to look at. Stops its workers when destroyed.
class GuestCamera : public StereoCamera {
public:
  explicit GuestCamera(int deviceNode) : StereoCamera(deviceNode) {}
  explicit GuestCamera(const std::string& settingsPath) : StereoCamera(settingsPath) {}
  ~GuestCamera() override {
    stopStereoCompute();
    stopCapture();
  }

  std::string backEnd() const { return m_videoCapture->isOpened() ? m_videoCapture->getBackendName() : "none"; }
  double property(int which) const { return m_videoCapture->get(which); }

  /// Pixels (CV_32FC1); a copy.
  cv::Mat latestDisparity() {
    const std::lock_guard lock(m_disparityMutex);
    return m_disparityFrame.second.clone();
  }

  using StereoCamera::m_algorithm;
  using StereoCamera::m_depthmode;
  using StereoCamera::m_fisheyeRadius;
  using StereoCamera::m_maxDepth;
};

/// The back end that this run is for: set by the suite along with what makes OpenCV take it.
inline std::string expectedBackEnd() {
  const char* const name = std::getenv("DEVICE_TESTS_BACK_END");
  return name == nullptr ? "" : name;
}

}  // namespace stereo::test
