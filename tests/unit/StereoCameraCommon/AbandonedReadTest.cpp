// SPDX-License-Identifier: Apache-2.0
// A read of a GStreamer device that nothing ends. This program replaces a function of the C
// library, stat, to see which video device a stop looks for.
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
#include "tests/support/StalledPipeline.hpp"
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
using stereo::test::StalledPipeline;
using stereo::test::TempDir;
using stereo::test::TestCamera;

TEST(AbandonedRead, LeavesDeviceAndThreadUntouchedUntilItReturns) {
  const auto fate = std::make_shared<StalledPipeline::Fate>();
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
  fate->letGo();
  EXPECT_TRUE(await([&] { return fate->isGone.load(); }));
}

// Settings loaded meanwhile name the next device, not the open one.
TEST(AbandonedRead, TheDeviceThatWasOpenedIsTold) {
  const auto fate = std::make_shared<StalledPipeline::Fate>();
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
  fate->letGo();
  EXPECT_TRUE(await([&] { return fate->isGone.load(); }));
}
