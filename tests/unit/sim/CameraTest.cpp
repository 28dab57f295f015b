// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "sim/SimulatedCamera.hpp"
#include "sources/ReplayCamera.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::sim {
namespace {

using stereo::test::halfSize;
using stereo::test::sameBits;

using Clock = std::chrono::steady_clock;

/// What the camera makes of an eye: nothing but the disc of `radius` about the middle, row by row.
cv::Mat inCircle(const cv::Mat& eye, int radius) {
  cv::Mat masked = cv::Mat::zeros(eye.size(), eye.type());
  const int cx = eye.cols / 2;
  const int cy = eye.rows / 2;
  for (int row = 0; row < eye.rows; ++row) {
    for (int col = 0; col < eye.cols; ++col) {
      const int dy = cy - row;
      if (std::abs(dy) <= radius && std::abs(col - cx) <= static_cast<int>(std::sqrt(radius * radius - dy * dy))) {
        masked.at<cv::Vec3b>(row, col) = eye.at<cv::Vec3b>(row, col);
      }
    }
  }
  return masked;
}

TEST(SimulatedCamera, IsReadyOnceConstructed) {
  SimulatedCamera camera({.frameSize = halfSize, .rate = 20, .seed = 42, .rectFrameSize = {232, 200}});
  EXPECT_TRUE(camera.isOpened());
  EXPECT_EQ(camera.getDeviceNode(), 0);
  EXPECT_EQ(camera.getSerialNumber(), 42);
  EXPECT_EQ(camera.getRawFrameRate(), 20.0F);
  EXPECT_EQ(camera.getRawFrameSize(), halfSize);
  EXPECT_EQ(camera.rectFrameSize(), cv::Size(232, 200));
  EXPECT_EQ(camera.fisheyeRadius(), 232);
  for (const bool isRight : {false, true}) {
    std::vector<cv::Mat> params;
    ASSERT_TRUE(camera.getCalibParams(params, isRight));
    const std::vector<cv::Mat> expected = Rig(42).calibParams(isRight);
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_TRUE(sameBits(params[i], expected[i])) << i;
    }
  }
}

TEST(SimulatedCamera, OptionsOutOfRangeThrow) {
  EXPECT_THROW(SimulatedCamera({.frameSize = {1280, 720}}), std::invalid_argument);
  EXPECT_THROW(SimulatedCamera({.frameSize = halfSize, .rate = -1}), std::invalid_argument);
  EXPECT_THROW(SimulatedCamera({.frameSize = halfSize, .period = 0}), std::invalid_argument);
}

TEST(SimulatedCamera, DeliversTheRenderedEyesWithinTheImageCircle) {
  SimulatedCamera camera({.frameSize = halfSize, .rate = 0, .seed = 2, .moving = false});
  const cv::Mat rendered = Renderer(camera.scene(), camera.rig(), halfSize).render(0.0);
  ASSERT_TRUE(camera.startCapture(false, false));
  cv::Mat left;
  cv::Mat right;
  std::chrono::microseconds timestamp{0};
  ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
  EXPECT_TRUE(sameBits(left, inCircle(rendered(cv::Rect(0, 0, 464, 400)), 232)));
  EXPECT_TRUE(sameBits(right, inCircle(rendered(cv::Rect(464, 0, 464, 400)), 232)));
  EXPECT_GT(camera.capture().framesDelivered(), 10U);
  EXPECT_TRUE(camera.stopCapture());
}

TEST(SimulatedCamera, FramesComeAtTheRateWithRisingStamps) {
  SimulatedCamera camera({.frameSize = halfSize, .rate = 50, .moving = false});
  ASSERT_TRUE(camera.startCapture(false, false));
  cv::Mat frame;
  std::chrono::microseconds first{0};
  std::chrono::microseconds last{0};
  ASSERT_TRUE(camera.getRawFrame(frame, first));
  EXPECT_EQ(frame.size(), halfSize);
  const std::uint64_t delivered = camera.capture().framesDelivered();
  for (int i = 0; i < 10; ++i) {
    const std::chrono::microseconds before = last;
    ASSERT_TRUE(camera.getRawFrame(frame, last));
    EXPECT_GT(last, before);
  }
  const auto periods = static_cast<double>(camera.capture().framesDelivered() - delivered);
  EXPECT_GE(periods, 9.0);
  // No faster than the rate: a frame that was handed over late comes up to one period after it was due.
  EXPECT_GE(std::chrono::duration<double>(last - first).count(), 8 * 0.02);
  camera.stopCapture();
}

TEST(SimulatedCamera, FrameSizeCanBeChosenAsOnARealCamera) {
  SimulatedCamera camera({.frameSize = {1856, 800}, .rate = 0, .moving = false});
  EXPECT_FALSE(camera.setRawFrameSize({640, 480}));
  EXPECT_TRUE(camera.setRawFrameSize(halfSize));
  EXPECT_EQ(camera.fisheyeRadius(), 232);
  EXPECT_TRUE(camera.setRawFrameRate(120));
  EXPECT_EQ(camera.capture().get(cv::CAP_PROP_FPS), 120.0);
  ASSERT_TRUE(camera.startCapture(false, false));
  cv::Mat frame;
  std::chrono::microseconds timestamp{0};
  ASSERT_TRUE(camera.getRawFrame(frame, timestamp));
  EXPECT_EQ(frame.size(), halfSize);
  EXPECT_EQ(camera.getRawFrameSize(), halfSize);
}

TEST(SimulatedCamera, DestroyingItStopsBothWorkers) {
  // A worker left running would end the process. The slow camera's worker waits minutes for its second frame.
  for (const double rate : {0.0, 0.01}) {
    const auto start = Clock::now();
    {
      SimulatedCamera camera({.frameSize = halfSize, .rate = rate, .moving = false, .rectFrameSize = {116, 100}});
      ASSERT_TRUE(camera.startCapture(false, false));
      ASSERT_TRUE(camera.startStereoCompute());
    }
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 30.0);
  }
}

TEST(SimulatedCamera, TruthBelongsToTheViewThatTheCameraMakes) {
  SimulatedCamera camera({.frameSize = halfSize, .rectFrameSize = {116, 100}});
  camera.setHorizontalField(60.0);
  camera.setLonLatField(150.0);
  EXPECT_NEAR(camera.perspectiveView().scale(), 58.0 / std::tan(CV_PI / 6.0), 1e-9);
  EXPECT_NEAR(camera.lonLatView().scale(), 116.0 / (150.0 / 222.0 * CV_PI), 1e-9);
  const Truth truth = camera.truth(camera.perspectiveView(), 0.0);
  const Truth direct = GroundTruth(camera.scene(), camera.rig()).at(View::perspective({116, 100}, 60.0), 0.0);
  ASSERT_FALSE(truth.depth.empty());
  EXPECT_TRUE(sameBits(truth.depth, direct.depth));
}

TEST(ReplayCamera, KeepsEveryPixelOfAnOddRecording) {
  const stereo::test::TempDir folder;
  cv::Mat image(90, 200, CV_8UC3);
  cv::randu(image, 1, 255);
  ASSERT_TRUE(cv::imwrite(folder / "frame.png", image));
  sources::ReplayCamera camera({.path = folder / "frame.png", .rate = 0});
  EXPECT_TRUE(camera.isOpened());
  EXPECT_EQ(camera.getRawFrameSize(), image.size());
  ASSERT_TRUE(camera.startCapture(false, false));
  cv::Mat frame;
  std::chrono::microseconds timestamp{0};
  ASSERT_TRUE(camera.getRawFrame(frame, timestamp));
  EXPECT_TRUE(sameBits(frame, image));
}

TEST(ReplayCamera, TakesTheCamerasOwnImageCircleOrTheGivenOne) {
  const stereo::test::TempDir folder;
  ASSERT_TRUE(cv::imwrite(folder / "own.png", cv::Mat(halfSize, CV_8UC3, cv::Scalar::all(200))));
  EXPECT_EQ(sources::ReplayCamera({.path = folder / "own.png"}).fisheyeRadius(), 232);
  sources::ReplayCamera camera({.path = folder / "own.png", .rate = 0, .fisheyeRadius = 50});
  ASSERT_TRUE(camera.startCapture(false, false));
  cv::Mat left;
  cv::Mat right;
  std::chrono::microseconds timestamp{0};
  ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
  EXPECT_TRUE(sameBits(left, inCircle(cv::Mat(400, 464, CV_8UC3, cv::Scalar::all(200)), 50)));
}

TEST(ReplayCamera, ShowsARecordingLikeTheCameraThatMadeIt) {
  const stereo::test::TempDir folder;
  SimulatedCamera original({.frameSize = halfSize, .rate = 0, .seed = 3, .moving = false});
  cv::Mat raw;
  ASSERT_TRUE(original.capture().read(raw));
  ASSERT_TRUE(cv::imwrite(folder / "frame.png", raw));
  original.rig().saveCalibration(folder / "calibration.yml", 3);
  sources::ReplayCamera replay({.path = folder / "frame.png", .rate = 0});
  ASSERT_TRUE(replay.loadCalibParams(folder / "calibration.yml"));
  cv::Mat left[2];
  cv::Mat right[2];
  int i = 0;
  for (sources::VirtualCamera* camera :
       {static_cast<sources::VirtualCamera*>(&original), static_cast<sources::VirtualCamera*>(&replay)}) {
    ASSERT_TRUE(camera->startCapture(false, false));
    ASSERT_TRUE(camera->getRectStereoFrame(left[i], right[i]));
    ++i;
  }
  ASSERT_FALSE(left[0].empty() || right[0].empty());
  EXPECT_TRUE(sameBits(left[0], left[1]));
  EXPECT_TRUE(sameBits(right[0], right[1]));
}

TEST(ReplayCamera, RecordingPlayedOnceComesThroughWhole) {
  const stereo::test::TempDir folder;
  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(
        cv::imwrite(folder / ("frame-" + std::to_string(i) + ".png"), cv::Mat(40, 100, CV_8UC3, cv::Scalar::all(i))));
  }
  sources::ReplayCamera camera({.path = folder.path(), .rate = 20, .loop = false});
  std::mutex mutex;
  std::condition_variable arrived;
  std::set<int> seen;
  std::thread reader([&] {
    cv::Mat left;
    cv::Mat right;
    std::chrono::microseconds timestamp{0};
    while (camera.getStereoFrame(left, right, timestamp)) {
      const std::lock_guard lock(mutex);
      seen.insert(left.at<cv::Vec3b>(0, 0)[0]);
      arrived.notify_all();
    }
  });
  ASSERT_TRUE(camera.startCapture(false, false));
  {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(arrived.wait_for(lock, std::chrono::seconds(30), [&seen] { return seen.size() == 3; }));
  }
  camera.stopCapture();
  reader.join();
  EXPECT_EQ(seen, (std::set<int>{1, 2, 3}));
}

TEST(ReplayCamera, DestroyingItAfterTheEndStopsBothWorkers) {
  const stereo::test::TempDir folder;
  ASSERT_TRUE(cv::imwrite(folder / "frame.png", cv::Mat(40, 100, CV_8UC3, cv::Scalar::all(9))));
  const auto start = Clock::now();
  {
    sources::ReplayCamera camera({.path = folder / "frame.png", .rate = 0, .loop = false, .rectFrameSize = {116, 100}});
    for (const bool isRight : {false, true}) {
      ASSERT_TRUE(camera.setCalibParams(Rig(1).calibParams(isRight), isRight));
    }
    ASSERT_TRUE(camera.startCapture(false, false));
    ASSERT_TRUE(camera.startStereoCompute());
    while (!camera.capture().finished()) {
      std::this_thread::yield();
      ASSERT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 60.0);
    }
  }
  EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 60.0);
}

TEST(ReplayCamera, UnreadablePathThrows) {
  const stereo::test::TempDir folder;
  EXPECT_THROW(sources::ReplayCamera({.path = folder / "missing.png"}), std::runtime_error);
}

}  // namespace
}  // namespace stereo::sim
