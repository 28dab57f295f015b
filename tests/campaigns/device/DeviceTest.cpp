// SPDX-License-Identifier: Apache-2.0
// The camera on a video device that the kernel gives: opened, sized and read through OpenCV's back ends.
#include <chrono>
#include <cstdio>

#include <gtest/gtest.h>

#include "tests/campaigns/device/Guest.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

using namespace stereo::test;
using std::chrono::microseconds;

namespace {

/// Takes frames until three in a row carry rising numbers. When reading begins, and after a pause, the loopback module
/// was seen to give what its ring of buffers still holds, in any order.
void awaitOrder(StereoCamera& camera, const Pattern& pattern) {
  constexpr int most = 64;  // four times the ring
  int rising = 0;
  int last = -1;
  for (int i = 0; rising < 3; ++i) {
    ASSERT_LT(i, most) << "numbers never rise";
    cv::Mat left;
    cv::Mat right;
    microseconds timestamp{};
    ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
    const int number = pattern.read(left, false);
    rising = number > last ? rising + 1 : 0;
    last = number;
  }
}

/// Takes `count` pairs: both eyes must show the same number, a higher one each time, and carry a later timestamp. Pairs
/// without a number that can be read, or with one that is no higher, are passed over, as many as `count` at most: the
/// loopback module guards none of its buffers, so now and then one is read that the feeder fills meanwhile, or again.
void expectNumberedFrames(StereoCamera& camera, cv::Size size, int count) {
  const Pattern pattern(size);
  awaitOrder(camera, pattern);
  int last = -1;
  int missed = 0;
  int passedOver = 0;
  microseconds lastTimestamp{0};
  for (int whole = 0; whole < count;) {
    cv::Mat left;
    cv::Mat right;
    microseconds timestamp{};
    ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
    const int number = pattern.read(left, false);
    ASSERT_EQ(left.size(), cv::Size(size.width / 2, size.height));
    ASSERT_EQ(left.type(), CV_8UC3);
    EXPECT_GT(timestamp, lastTimestamp);
    lastTimestamp = timestamp;
    if (number <= last) {
      ASSERT_LT(passedOver++, count) << "number " << number << " after " << last << ", and " << whole << " whole pairs";
      continue;
    }
    ++whole;
    EXPECT_EQ(pattern.read(right, true), number);
    EXPECT_EQ(pattern.read(left, true), number ^ 0xFFFF) << "the eyes must differ";
    missed += last < 0 ? 0 : number - last - 1;
    last = number;
  }
  const auto age = std::chrono::system_clock::now().time_since_epoch() - lastTimestamp;
  EXPECT_LT(age, std::chrono::seconds(10));
  EXPECT_EQ(camera.getRawFrameSize(), size);
  std::printf("%d frames of %d x %d, %d missed between them, %d passed over\n", count, size.width, size.height, missed,
              passedOver);
}

class DeviceSizes : public Device, public testing::WithParamInterface<cv::Size> {};

}  // namespace

TEST_P(DeviceSizes, OpenedByIndex) {
  const cv::Size size = GetParam();
  const Feeder feeder(size, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.isOpened());
  EXPECT_EQ(camera.backEnd(), expectedBackEnd());
  EXPECT_TRUE(camera.setRawFrameRate(5));
  EXPECT_TRUE(camera.setRawFrameSize(size));
  EXPECT_EQ(camera.m_fisheyeRadius, size.width / 4);
  EXPECT_EQ(camera.property(cv::CAP_PROP_FRAME_WIDTH), size.width);
  EXPECT_EQ(camera.property(cv::CAP_PROP_FRAME_HEIGHT), size.height);
  ASSERT_TRUE(camera.startCapture(false, false));
  expectNumberedFrames(camera, size, 8);
  EXPECT_GT(camera.getRawFrameRate(), 0.5F);
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_FALSE(camera.isOpened());
}

TEST_P(DeviceSizes, OpenedBySettings) {
  const cv::Size size = GetParam();
  const TempDir folder;
  const std::string settings =
      writeDocument(folder.path("settings.yaml"), {{"DeviceNode", row({loopbackDevice})},
                                                   {"FrameSize", row({double(size.width), double(size.height)})},
                                                   {"FrameRate", row({5})},
                                                   {"RectifyFrameSize", row({232, 200})}});
  const Feeder feeder(size, 5);
  GuestCamera camera(settings);
  ASSERT_TRUE(camera.isOpened());
  EXPECT_EQ(camera.backEnd(), expectedBackEnd());
  EXPECT_EQ(camera.property(cv::CAP_PROP_FRAME_WIDTH), size.width);
  EXPECT_EQ(camera.property(cv::CAP_PROP_FRAME_HEIGHT), size.height);
  // The settings constructor leaves the image circle alone; without one the frames are black.
  EXPECT_EQ(camera.m_fisheyeRadius, 0);
  EXPECT_TRUE(camera.setRawFrameSize(size));
  ASSERT_TRUE(camera.startCapture(false, false));
  expectNumberedFrames(camera, size, 4);
}

INSTANTIATE_TEST_SUITE_P(Formats, DeviceSizes, testing::Values(fullSize, halfSize),
                         [](const auto& each) { return "Width" + std::to_string(each.param.width); });

// The device says which size there is, whatever is asked for: the frames tell, and the camera follows them. GStreamer's
// pipeline does not survive the question.
TEST_F(Device, DeliversTheSizeThatItHasWhenAskedForAnother) {
  if (expectedBackEnd() == "GSTREAMER") {
    GTEST_SKIP() << "reads wait without end once a size was asked for that the device does not have";
  }
  const Feeder feeder(halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.isOpened());
  EXPECT_TRUE(camera.setRawFrameSize(fullSize));
  EXPECT_EQ(camera.getRawFrameSize(), fullSize);
  std::printf("asked for 1856 x 800, the device says %.0f x %.0f\n", camera.property(cv::CAP_PROP_FRAME_WIDTH),
              camera.property(cv::CAP_PROP_FRAME_HEIGHT));
  ASSERT_TRUE(camera.startCapture(false, false));
  cv::Mat left;
  cv::Mat right;
  microseconds timestamp{};
  ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
  std::printf("frames of %d x %d\n", 2 * left.cols, left.rows);
  EXPECT_EQ(camera.getRawFrameSize(), cv::Size(2 * left.cols, left.rows));
}

TEST_F(Device, RawFrameHoldsBothEyesSideBySide) {
  const Feeder feeder(halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  ASSERT_TRUE(camera.startCapture(false, false));
  cv::Mat raw;
  microseconds timestamp{};
  ASSERT_TRUE(camera.getRawFrame(raw, timestamp));
  ASSERT_EQ(raw.size(), halfSize);
  const Pattern pattern(halfSize);
  const int number = pattern.read(raw(cv::Rect(0, 0, 464, 400)), false);
  EXPECT_GE(number, 0);
  EXPECT_EQ(pattern.read(raw(cv::Rect(464, 0, 464, 400)), true), number);
  EXPECT_EQ(raw.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0)) << "outside the image circle";
}

TEST_F(Device, AbsentDeviceStaysClosed) {
  GuestCamera camera(42);
  EXPECT_FALSE(camera.isOpened());
}

// Every product from frames that came through a device. The same calibration for both eyes: the pattern's shift between
// the eyes is then a disparity.
TEST_F(Device, GivesEveryProduct) {
  const Feeder feeder(fullSize, 5);
  for (const int mode : {1, 2}) {
    SCOPED_TRACE(mode);
    GuestCamera camera(loopbackDevice);
    ASSERT_TRUE(camera.isOpened());
    ASSERT_TRUE(camera.setRawFrameSize(fullSize));
    const cv::Size size(232, 200);
    ASSERT_TRUE(camera.setRectFrameSize(size));
    std::vector<cv::Mat> eye = someCalibration(1);
    eye[3] = cv::Mat::eye(3, 3, CV_64F);
    camera.setCalibParams(eye, false);
    camera.setCalibParams(eye, true);
    camera.m_depthmode = mode;
    camera.m_algorithm = 1;
    camera.m_maxDepth = 50;
    ASSERT_TRUE(camera.startCapture(false, false));
    cv::Mat left;
    cv::Mat right;
    cv::Mat view;
    microseconds timestamp{};
    ASSERT_TRUE(camera.getRectStereoFrame(left, right));
    EXPECT_EQ(left.size(), size);
    EXPECT_EQ(right.size(), size);
    EXPECT_GT(cv::mean(left)[0], 10) << "not black";
    ASSERT_TRUE(camera.getRectStereoFrame(left, right, view, timestamp));
    EXPECT_EQ(view.size(), size);
    ASSERT_TRUE(camera.startStereoCompute());
    const auto start = std::chrono::steady_clock::now();
    const auto say = [&](const char* what) {
      std::printf("%s after %.1f s\n", what,
                  std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    };
    // The three-argument read is colored whatever is asked for.
    cv::Mat colored;
    ASSERT_TRUE(await(
        [&] { return camera.getDepthFrame(colored, true, timestamp) && cv::countNonZero(colored.reshape(1)) > 0; },
        productLimit));
    EXPECT_EQ(colored.size(), size);
    EXPECT_EQ(colored.type(), CV_8UC3);
    EXPECT_GT(timestamp.count(), 0);
    say("coloured depth");
    cv::Mat depth;
    cv::Mat disparity = camera.latestDisparity().second;
    camera.getDepthFrame(disparity, depth);
    EXPECT_EQ(depth.size(), size);
    ASSERT_EQ(depth.type(), CV_32FC1);
    const int near = cv::countNonZero(depth > 0);
    EXPECT_GT(near, 1000);
    std::vector<cv::Vec3f> points;
    ASSERT_TRUE(await([&] { return camera.getPointCloud(points, timestamp) && !points.empty(); }, productLimit));
    say("cloud");
    std::vector<PCL> coloredPoints;
    ASSERT_TRUE(
        await([&] { return camera.getPointCloud(coloredPoints, timestamp) && !coloredPoints.empty(); }, productLimit));
    say("coloured cloud");
    std::printf("depth mode %d: %d pixels with depth, %zu points, %zu coloured\n", mode, near, points.size(),
                coloredPoints.size());
    EXPECT_TRUE(camera.stopStereoCompute());
    EXPECT_TRUE(camera.stopCapture());
  }
}

// A feeder that stalls and goes on: the same capture goes on too, whichever back end waits.
TEST_F(Device, GoesOnWhenFramesComeAgain) {
  const Feeder feeder(halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  ASSERT_TRUE(camera.startCapture(false, false));
  expectNumberedFrames(camera, halfSize, 3);
  feeder.pause();
  ASSERT_TRUE(camera.awaitStalledRead());
  feeder.resume();
  expectNumberedFrames(camera, halfSize, 3);
}
