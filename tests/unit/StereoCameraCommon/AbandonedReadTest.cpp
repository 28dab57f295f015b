// SPDX-License-Identifier: Apache-2.0
// A read of a GStreamer device that nothing ends. This program replaces a function of the C
// library, stat, to see which video device a stop looks for.
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/shm.h>
#include <sys/stat.h>

#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>

#include "tests/support/Await.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

namespace {

std::mutex lookedForMutex;
std::set<std::string> lookedFor;  // video devices

}  // namespace

extern "C" int stat(const char* path, struct stat* result) {
  const std::string name = path;
  if (name.rfind("/dev/video", 0) == 0) {
    const std::lock_guard lock(lookedForMutex);
    lookedFor.insert(name);
  }
  return fstatat(AT_FDCWD, path, result, 0);
}

using stereo::test::await;
using stereo::test::OutputCapture;
using stereo::test::recordTexts;
using stereo::test::TempDir;
using stereo::test::TestCamera;

namespace {

// Shared by the test and a device that outlives its camera.
struct Fate {
  std::mutex mutex;
  std::condition_variable changed;
  bool isLetGo = false;
  std::atomic<bool> isStalled{false};
  std::atomic<int> releases{0};
  std::atomic<bool> isGone{false};
};

// An OpenCV pipeline whose reads stall after the first few.
class StalledPipeline : public cv::VideoCapture {
public:
  explicit StalledPipeline(std::shared_ptr<Fate> fate)
      : cv::VideoCapture("videotestsrc ! video/x-raw,format=BGR,width=64,height=32 ! appsink", cv::CAP_GSTREAMER),
        m_fate(std::move(fate)) {}
  ~StalledPipeline() override { m_fate->isGone = true; }

  bool read(cv::OutputArray image) override {
    if (m_reads++ >= framesBefore) {
      std::unique_lock lock(m_fate->mutex);
      m_fate->isStalled = true;
      m_fate->changed.wait(lock, [this] { return m_fate->isLetGo; });
    }
    cv::Mat(32, 64, CV_8UC3, cv::Scalar::all(9)).copyTo(image);
    return true;
  }
  bool set(int, double) override { return false; }
  void release() override { ++m_fate->releases; }

private:
  static constexpr int framesBefore = 12;
  std::shared_ptr<Fate> m_fate;
  int m_reads = 0;
};

}  // namespace

TEST(AbandonedRead, LeavesDeviceAndThreadUntouchedUntilItReturns) {
  const auto fate = std::make_shared<Fate>();
  constexpr int position = 777;
  {
    TestCamera camera;
    auto device = std::make_unique<StalledPipeline>(fate);
    ASSERT_TRUE(device->cv::VideoCapture::isOpened());
    camera.install(device.release());
    camera.m_rawFrameSize = {928, 400};
    camera.setPosNumber(position);
    const OutputCapture out(1);
    camera.startCapture(false, true);
    ASSERT_TRUE(await([&] { return fate->isStalled.load(); }));
    EXPECT_TRUE(camera.stopCapture());
    EXPECT_EQ(camera.m_captureThread, nullptr);
    EXPECT_EQ(fate->releases, 0) << "a release frees what the read works on";
    EXPECT_FALSE(fate->isGone);
    ASSERT_NE(camera.m_videoCapture, nullptr);
    EXPECT_FALSE(camera.m_videoCapture->isOpened());
    EXPECT_EQ(shmget(9000 + position, 0, 0), -1) << "the segment is gone";
    EXPECT_EQ(recordTexts(out.text()).back(), "Stop get frame done.\n");
    cv::Mat frame;
    std::chrono::microseconds timestamp{0};
    EXPECT_FALSE(camera.getRawFrame(frame, timestamp));
  }
  EXPECT_FALSE(fate->isGone);
  // Long after the camera is gone, the read returns. The thread ends, and destroys the device.
  {
    const std::lock_guard lock(fate->mutex);
    fate->isLetGo = true;
  }
  fate->changed.notify_all();
  EXPECT_TRUE(await([&] { return fate->isGone.load(); }));
}

// Settings loaded meanwhile name the next device, not the open one.
TEST(AbandonedRead, TheDeviceThatWasOpenedIsTold) {
  const auto fate = std::make_shared<Fate>();
  const TempDir folder;
  TestCamera camera;
  camera.install(new StalledPipeline(fate));
  camera.m_deviceNode = 9811;
  camera.startCapture(false, false);
  ASSERT_TRUE(camera.loadConfig(
      stereo::test::writeDocument(folder.path("settings.yml"), {{"DeviceNode", stereo::test::row({9822})}})));
  ASSERT_EQ(camera.getDeviceNode(), 9822);
  ASSERT_TRUE(await([&] { return fate->isStalled.load(); }));
  camera.stopCapture();
  {
    const std::lock_guard lock(lookedForMutex);
    EXPECT_EQ(lookedFor.count("/dev/video9811"), 1U);
    EXPECT_EQ(lookedFor.count("/dev/video9822"), 0U);
  }
  {
    const std::lock_guard lock(fate->mutex);
    fate->isLetGo = true;
  }
  fate->changed.notify_all();
  EXPECT_TRUE(await([&] { return fate->isGone.load(); }));
}
