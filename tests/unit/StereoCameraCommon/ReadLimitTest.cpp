// SPDX-License-Identifier: Apache-2.0
#include "ReadLimit.hpp"

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Await.hpp"
#include "tests/support/FedCamera.hpp"

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using stereo::test::await;
using stereo::test::FedCamera;
using stereo::test::RectifiedFrame;
using stereo::test::TestCamera;

namespace {

struct Outputs {
  cv::Mat a = cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(1));
  cv::Mat b = cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(2));
  cv::Mat c = cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(3));
  microseconds timestamp{4};
  std::vector<cv::Vec3f> plain{{1, 2, 3}};
  std::vector<PCL> colored = std::vector<PCL>(1);
};

// Every read that waits.
std::vector<std::function<bool(StereoCamera&, Outputs&)>> reads() {
  return {
      [](StereoCamera& camera, Outputs& out) { return camera.getRawFrame(out.a, out.timestamp); },
      [](StereoCamera& camera, Outputs& out) { return camera.getStereoFrame(out.a, out.b, out.timestamp); },
      [](StereoCamera& camera, Outputs& out) { return camera.getRectStereoFrame(out.a, out.b); },
      [](StereoCamera& camera, Outputs& out) { return camera.getRectStereoFrame(out.a, out.b, out.c, out.timestamp); },
      [](StereoCamera& camera, Outputs& out) { return camera.getPointCloud(out.plain, out.timestamp); },
      [](StereoCamera& camera, Outputs& out) { return camera.getPointCloud(out.colored, out.timestamp); }};
}

}  // namespace

TEST(ReadLimit, EndsEveryReadWithItsOutputsUntouched) {
  TestCamera camera;
  for (const auto& read : reads()) {
    Outputs out;
    const auto begun = steady_clock::now();
    ReadLimit limit(milliseconds(20));
    EXPECT_FALSE(read(camera, out));
    EXPECT_TRUE(limit.wasReached());
    EXPECT_GE(steady_clock::now() - begun, milliseconds(20));
    EXPECT_EQ(out.a.at<cv::Vec3b>(0, 0)[0] + out.b.at<cv::Vec3b>(0, 0)[0] + out.c.at<cv::Vec3b>(0, 0)[0], 6);
    EXPECT_EQ(out.timestamp.count(), 4);
    EXPECT_EQ(out.plain.size() + out.colored.size(), 2U);
  }
  EXPECT_EQ(ReadLimit::current(), nullptr);
}

TEST(ReadLimit, OfTheColoredDepth) {
  FedCamera camera([](int, RectifiedFrame&) { return false; });
  camera.startStereoCompute();
  cv::Mat depth;
  microseconds timestamp{0};
  ReadLimit limit(milliseconds(1));
  EXPECT_FALSE(camera.getDepthFrame(depth, true, timestamp));
  EXPECT_TRUE(limit.wasReached());
}

TEST(ReadLimit, AsksWithNoLockHeld) {
  TestCamera camera;
  int asked = 0;
  ReadLimit limit([&] {
    std::thread([&] {
      const std::unique_lock frames(camera.m_frameMutex, std::try_to_lock);
      const std::unique_lock disparities(camera.m_disparityMutex, std::try_to_lock);
      EXPECT_TRUE(frames && disparities);
    }).join();
    return ++asked < 3;
  });
  for (const auto& read : reads()) {
    Outputs out;
    asked = 0;
    EXPECT_FALSE(read(camera, out));
    EXPECT_EQ(asked, 3);
  }
}

// Whenever the frame comes relative to the question.
TEST(ReadLimit, ChangesNothingForAReadThatGetsItsFrame) {
  std::atomic<int> number{0};
  TestCamera camera([&](int) { return stereo::test::twoColors({64, 32}, cv::Scalar::all(number), {4, 5, 6}); });
  camera.m_fisheyeRadius = 1000;
  camera.startCapture(false, false);
  microseconds last{0};
  ReadLimit limit(stereo::test::deadline);
  for (int k = 0; k < 100; ++k) {
    cv::Mat frame;
    microseconds timestamp{0};
    ASSERT_TRUE(camera.getRawFrame(frame, timestamp));
    EXPECT_GT(timestamp, last);
    last = timestamp;
  }
  EXPECT_FALSE(limit.wasReached());
}

TEST(ReadLimit, GetsAFrameThatCameWhileItAsked) {
  FedCamera camera([](int, RectifiedFrame&) { return false; });
  ReadLimit limit([&, k = 0]() mutable {
    camera.publishRaw(microseconds(++k));
    return true;
  });
  cv::Mat depth;
  microseconds timestamp{0};
  camera.startStereoCompute();
  EXPECT_FALSE(camera.getDepthFrame(depth, true, timestamp)) << "there is no disparity";
  EXPECT_FALSE(limit.wasReached());
  EXPECT_EQ(timestamp.count(), 1);
}

TEST(ReadLimit, GetsADisparityThatCameWhileItAsked) {
  FedCamera camera([](int, RectifiedFrame&) { return false; });
  int asked = 0;
  ReadLimit limit([&] {
    if (asked++ == 0) {
      const std::lock_guard lock(camera.m_disparityMutex);
      camera.m_disparityFrame.timestamp = microseconds(9);
      camera.m_disparityCond.notify_all();
    }
    return asked < 100;
  });
  std::vector<cv::Vec3f> points(1);
  microseconds timestamp{0};
  EXPECT_TRUE(camera.getPointCloud(points, timestamp));
  EXPECT_EQ(asked, 1);
  EXPECT_FALSE(limit.wasReached());
}

TEST(ReadLimit, OfTheLongestTimeIsNone) {
  std::atomic<int> number{0};
  TestCamera camera([&](int) { return stereo::test::twoColors({64, 32}, cv::Scalar::all(number), {4, 5, 6}); });
  camera.startCapture(false, false);
  ReadLimit limit(steady_clock::duration::max());
  cv::Mat frame;
  microseconds timestamp{0};
  EXPECT_TRUE(camera.getRawFrame(frame, timestamp));
}

TEST(ReadLimit, TheInnermostCounts) {
  TestCamera camera;
  ReadLimit outer(stereo::test::deadline);
  {
    ReadLimit inner(milliseconds(1));
    Outputs out;
    EXPECT_FALSE(camera.getRawFrame(out.a, out.timestamp));
    EXPECT_TRUE(inner.wasReached());
  }
  EXPECT_FALSE(outer.wasReached());
  EXPECT_EQ(ReadLimit::current(), &outer);
}

TEST(ReadLimit, AStopStillEndsTheRead) {
  TestCamera camera([](int) { return cv::Mat(); });
  camera.startCapture(false, false);
  std::atomic<bool> waits{false};
  std::thread reader([&] {
    ReadLimit limit([&] {
      waits = true;
      return true;
    });
    Outputs out;
    EXPECT_FALSE(camera.getRawFrame(out.a, out.timestamp));
    EXPECT_FALSE(limit.wasReached());
  });
  EXPECT_TRUE(await([&] { return waits.load(); }));
  camera.stopCapture();
  reader.join();
}
