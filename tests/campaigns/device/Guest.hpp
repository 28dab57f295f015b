// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "sources/HostCamera.hpp"
#include "tests/campaigns/device/Pattern.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/Program.hpp"

namespace stereo::test {

/// The guest's devices: frames of the feeder, and a camera made by the kernel (640 x 480 and others, never 1856 x 800).
constexpr int loopbackDevice = 0;
constexpr int kernelDevice = 1;

/// For each product. The first colored cloud takes 10 to 30 s under emulation: HighGUI wakes up.
constexpr std::chrono::seconds productLimit(90);

/// How many descriptors of video devices this process has, of devices that are gone too.
inline int deviceDescriptors() {
  int count = 0;
  for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code failure;  // the iterator's own descriptor is gone when it is looked at
    count += std::filesystem::read_symlink(each.path(), failure).string().rfind("/dev/video", 0) == 0 ? 1 : 0;
  }
  return count;
}

/// The back end that this run is for: set by the suite along with what makes OpenCV take it.
inline std::string expectedBackEnd() {
  const char* const name = std::getenv("DEVICE_TESTS_BACK_END");
  return name == nullptr ? "" : name;
}

/// Tests on video devices: none leaves one open.
class Device : public testing::Test {
protected:
  void SetUp() override { m_before = deviceDescriptors(); }
  void TearDown() override { EXPECT_LE(deviceDescriptors(), m_before + m_kept) << "a device is still open"; }

  /// Says that the kernel's camera is opened so many times. GStreamer's own source (1.22) keeps one descriptor of each
  /// time, along with the pool of its buffers, to the process's end, whoever uses it.
  void opensKernelDevice(int times) { m_kept = expectedBackEnd() == "GSTREAMER" ? times : 0; }

private:
  int m_before = 0;
  int m_kept = 0;
};

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

/// The kernel's camera is there, or not, as long as this says so; it is there again at the end, or once this process
/// has ended (the suite sees to it).
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
      // It comes back under another number where this process still holds it, as GStreamer does to the process's end.
      tell("unbind");
      tell("bind");
    }
    return await(isIn, std::chrono::seconds(1));
  }

  /// The kernel's camera loses all its frames, or none again.
  static bool loseFrames(bool all) {
    const int device = open("/dev/video1", O_RDWR | O_CLOEXEC);
    bool done = false;
    v4l2_queryctrl control{};
    control.id = V4L2_CTRL_FLAG_NEXT_CTRL;
    while (!done && ioctl(device, VIDIOC_QUERYCTRL, &control) == 0) {
      if (std::string(reinterpret_cast<const char*>(control.name)) == "Percentage of Dropped Buffers") {
        v4l2_control value{control.id, all ? 100 : 0};
        done = ioctl(device, VIDIOC_S_CTRL, &value) == 0;
      }
      control.id |= V4L2_CTRL_FLAG_NEXT_CTRL;
    }
    close(device);
    return done;
  }

private:
  static void tell(const std::string& what) {
    std::ofstream file("/sys/bus/platform/drivers/vivid/" + what);
    file << "vivid.0" << std::endl;
  }
};

/// The device that OpenCV opened, with all that was set on it, taken over from whoever opened it; lets a test see how
/// its reads go. Any thread.
class WatchedCapture : public cv::VideoCapture {
public:
  explicit WatchedCapture(std::unique_ptr<cv::VideoCapture> opened) {
    cv::Ptr<cv::IVideoCapture> cv::VideoCapture::*const device = &WatchedCapture::icap;
    icap = (*opened).*device;
  }

  bool read(cv::OutputArray image) override {
    {
      const std::lock_guard lock(m_mutex);
      m_since = Clock::now();
      m_inside = true;
    }
    const bool answer = cv::VideoCapture::read(image);
    const std::lock_guard lock(m_mutex);
    m_inside = false;
    m_failures += answer ? 0 : 1;
    return answer;
  }

  /// Whether a read has been waiting for so long.
  bool isWaiting(std::chrono::milliseconds atLeast) const {
    const std::lock_guard lock(m_mutex);
    return m_inside && Clock::now() - m_since >= atLeast;
  }
  int failures() const {
    const std::lock_guard lock(m_mutex);
    return m_failures;
  }

private:
  using Clock = std::chrono::steady_clock;

  mutable std::mutex m_mutex;  // guards the rest; not held during a read
  bool m_inside = false;
  Clock::time_point m_since;
  int m_failures = 0;
};

/// A camera on a real device, with its device to look at. Stops its workers when destroyed.
class GuestCamera : public sources::HostCamera {
public:
  explicit GuestCamera(int deviceNode) : HostCamera(deviceNode) { watch(); }
  explicit GuestCamera(const std::string& settingsPath) : HostCamera(settingsPath) { watch(); }
  ~GuestCamera() override { stopWorkers(); }

  std::string backEnd() const { return isOpenDevice() ? m_watched->getBackendName() : "none"; }
  double property(int which) const { return m_videoCapture->get(which); }

  /// Waits until the worker's read has gone unanswered for several frame periods.
  bool awaitStalledRead() const {
    return await([this] { return m_watched->isWaiting(std::chrono::seconds(1)); }, std::chrono::seconds(30));
  }
  int failedReads() const { return m_watched->failures(); }
  /// Waits until one more read has failed than had when there were `before`.
  bool awaitFailedRead(int before) const {
    return await([this, before] { return m_watched->failures() > before; }, std::chrono::seconds(30));
  }

  using StereoCamera::m_algorithm;
  using StereoCamera::m_depthmode;
  using StereoCamera::m_fisheyeRadius;
  using StereoCamera::m_maxDepth;
  using StereoCamera::m_transmode;
  using StereoCamera::m_transrate;

private:
  bool isOpenDevice() const { return m_watched != nullptr && m_watched->isOpened(); }
  void watch() {
    if (m_videoCapture != nullptr) {
      m_watched = new WatchedCapture(std::unique_ptr<cv::VideoCapture>(std::exchange(m_videoCapture, nullptr)));
      m_videoCapture = m_watched;
    }
  }

  WatchedCapture* m_watched = nullptr;  // the camera's device
};

}  // namespace stereo::test
