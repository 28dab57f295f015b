// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/session/Watchdog.hpp"

#include <gtest/gtest.h>

#include "apps/stereo-camera/process/Failure.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/ScriptedCapture.hpp"
#include "tests/support/TestCamera.hpp"

using namespace std::chrono_literals;
using stereo::app::ExitCode;
using stereo::app::Failure;
using stereo::app::Watchdog;
using stereo::test::Gate;
using stereo::test::TestCamera;

namespace {

const cv::Mat frame(8, 16, CV_8UC3, cv::Scalar::all(5));

}  // namespace

TEST(Watchdog, EndsAReadThatNothingComesFor) {
  TestCamera camera([](int) { return cv::Mat(); });
  camera.startCapture(false, false);
  Watchdog watch(camera, 200ms);
  cv::Mat read;
  std::chrono::microseconds timestamp{0};
  try {
    watch.run([&] { return camera.getRawFrame(read, timestamp); });
    FAIL() << "no frame can have come";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::noFrames);
    EXPECT_NE(std::string(failure.what()).find("no frame for 200 ms"), std::string::npos);
  }
  EXPECT_FALSE(camera.isOpened());
  EXPECT_EQ(camera.m_captureThread, nullptr);
}

TEST(Watchdog, StartsNoDisparityWorkerAfterItsStop) {
  TestCamera camera([](int) { return cv::Mat(); });
  camera.startCapture(false, false);
  Watchdog watch(camera, 200ms);
  watch.startStereoCompute();
  EXPECT_NE(camera.m_computeThread, nullptr);
  cv::Mat read;
  std::chrono::microseconds timestamp{0};
  EXPECT_THROW(watch.run([&] { return camera.getRawFrame(read, timestamp); }), Failure);
  EXPECT_THROW(watch.startStereoCompute(), Failure);
  EXPECT_EQ(camera.m_computeThread, nullptr);
}

TEST(Watchdog, EndsAReadWhenFramesStopComing) {
  Gate gate;
  TestCamera camera([&](int read) { return read < 40 || gate.pass() ? frame : cv::Mat(); });
  camera.startCapture(false, false);
  Watchdog watch(camera, 300ms);
  cv::Mat read;
  std::chrono::microseconds timestamp{0};
  int reads = 0;
  std::thread opener([&] {
    // The device blocks in its read, which returns only after the watchdog has begun to stop the camera.
    while (camera.isOpened()) {
      std::this_thread::yield();
    }
    gate.open();
  });
  EXPECT_THROW(
      {
        for (;;) {
          watch.run([&] { return camera.getRawFrame(read, timestamp); });
          ++reads;
        }
      },
      Failure);
  opener.join();
  EXPECT_GT(reads, 0);
}

TEST(Watchdog, LeavesACameraThatDeliversAlone) {
  TestCamera camera([](int) { return frame; });
  camera.m_fisheyeRadius = 100;
  camera.startCapture(false, false);
  Watchdog watch(camera, 60s);
  cv::Mat read;
  std::chrono::microseconds timestamp{0};
  for (int i = 0; i < 50; ++i) {
    EXPECT_TRUE(watch.run([&] { return camera.getRawFrame(read, timestamp); }));
  }
  EXPECT_TRUE(camera.isOpened());
  watch.finish();
  EXPECT_FALSE(camera.isOpened());
  watch.finish();
}

TEST(Watchdog, SaysOnceIfFramesHaveAnotherSizeThanAskedFor) {
  const auto said = [](cv::Size asked) {
    TestCamera camera([](int) { return frame; });
    camera.startCapture(false, false);
    const stereo::test::OutputCapture errors(2);
    Watchdog watch(camera, 60s, asked);
    cv::Mat read;
    std::chrono::microseconds timestamp{0};
    for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(watch.run([&] { return camera.getRawFrame(read, timestamp); }));
    }
    return errors.ownText();
  };
  const std::string text = said({1856, 800});
  EXPECT_NE(text.find("frames come in 16 x 8 instead of 1856 x 800: give --size 16x8"), std::string::npos) << text;
  EXPECT_EQ(text.find("frames come", text.find("frames come") + 1), std::string::npos) << text;
  EXPECT_EQ(said(frame.size()), "");
  EXPECT_EQ(said({}), "");
}
