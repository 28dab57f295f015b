// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <cmath>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/Await.hpp"
#include "tests/support/DepthImages.hpp"
#include "tests/support/FedCamera.hpp"
#include "tests/support/Images.hpp"

using std::chrono::microseconds;
using stereo::test::await;
using stereo::test::depthRange;
using stereo::test::FedCamera;
using stereo::test::metricDepth;
using stereo::test::paintDepth;
using stereo::test::RectifiedFrame;
using stereo::test::sameBits;

namespace {

constexpr int sentinel = 77;

// A camera whose disparity worker idles, with a disparity published by hand.
class DepthFrame : public testing::Test {
protected:
  DepthFrame() {
    camera.m_translation = (cv::Mat_<double>(3, 1) << -60, 3, 4);
    camera.m_rectCameraMatrix = (cv::Mat_<double>(3, 3) << 20, 0, 9.5, 0, 20, 7.5, 0, 0, 1);
    camera.m_rectFrameSize = {20, 16};
    disparity = cv::Mat(16, 20, CV_32FC1);
    cv::randu(disparity, -1, 32);
  }

  void start() {
    camera.startStereoCompute();
    camera.publishDisparity(view, disparity);
  }

  // Calls the color form while raw frames with rising timestamps, from 1000 on, are published.
  bool colorDepth(cv::Mat& depth, microseconds& timestamp, bool color = true) {
    std::atomic<bool> done{false};
    bool answer = false;
    std::thread reader([&] {
      answer = camera.getDepthFrame(depth, color, timestamp);
      done = true;
    });
    EXPECT_TRUE(await([&] {
      if (!done) {
        camera.publishRaw(microseconds(next++));
      }
      return done.load();
    }));
    reader.join();
    return answer;
  }

  stereo::core::DepthModel expectedModel(int mode) {
    stereo::core::DepthModel model;
    model.mode = mode;
    model.b = static_cast<float>(0.001 * std::sqrt(3600.0 + 9 + 16));
    model.f = 20;
    model.W = 20;
    model.lonLatFov = 180;
    return model;
  }

  FedCamera camera{[](int, RectifiedFrame&) {
    std::this_thread::yield();
    return false;
  }};
  cv::Mat view = cv::Mat(16, 20, CV_8UC3, cv::Scalar(1, 2, 3));
  cv::Mat disparity;
  int next = 1000;
};

}  // namespace

TEST_F(DepthFrame, ColorIsRefusedAtOnceWithoutAWorker) {
  camera.publishDisparity(view, disparity);
  cv::Mat depth(1, 1, CV_8UC1, cv::Scalar(sentinel));
  microseconds timestamp{sentinel};
  EXPECT_FALSE(camera.getDepthFrame(depth, true, timestamp));
  EXPECT_EQ(depth.at<uchar>(0, 0), sentinel);
  EXPECT_EQ(timestamp.count(), sentinel);
}

TEST_F(DepthFrame, ColorPaintsTheDisparityWithTheNewestFramesStamp) {
  for (const int mode : {1, 2}) {
    camera.m_depthmode = mode;
    camera.stopStereoCompute();
    start();
    camera.m_disparityFrame.timestamp = microseconds(5);
    for (const bool color : {true, false}) {
      cv::Mat depth;
      microseconds timestamp{0};
      ASSERT_TRUE(colorDepth(depth, timestamp, color));
      EXPECT_GE(timestamp.count(), 1000);
      EXPECT_LT(timestamp.count(), next);
      const auto model = expectedModel(mode);
      const cv::Mat expected = paintDepth(disparity, model, depthRange(disparity, model));
      EXPECT_TRUE(sameBits(depth, expected)) << mode;
      EXPECT_GT(cv::countNonZero(depth.reshape(1)), 0);
    }
  }
}

TEST_F(DepthFrame, ColorWithoutADisparitySetsOnlyTheStamp) {
  disparity.release();
  start();
  cv::Mat depth(1, 1, CV_8UC1, cv::Scalar(sentinel));
  microseconds timestamp{0};
  EXPECT_FALSE(colorDepth(depth, timestamp));
  EXPECT_EQ(depth.at<uchar>(0, 0), sentinel);
  EXPECT_GE(timestamp.count(), 1000);
}

// It reads the disparity under the capture side's mutex, so it does not wait for a disparity worker that holds its own.
TEST_F(DepthFrame, ColorDoesNotWaitForTheDisparityMutex) {
  start();
  const std::lock_guard held(camera.m_disparityMutex);
  cv::Mat depth;
  microseconds timestamp{0};
  EXPECT_TRUE(colorDepth(depth, timestamp));
}

TEST_F(DepthFrame, ColorIsReleasedByStopCaptureWithOutputsUntouched) {
  start();
  cv::Mat depth;
  microseconds timestamp{sentinel};
  std::atomic<bool> returned{false};
  std::thread reader([&] {
    EXPECT_FALSE(camera.getDepthFrame(depth, true, timestamp));
    returned = true;
  });
  // The stop reaches a reader that waits; at the first stop this one may not have got there.
  EXPECT_TRUE(await([&] {
    camera.stopCapture();
    return returned.load();
  }));
  reader.join();
  EXPECT_TRUE(depth.empty());
  EXPECT_EQ(timestamp.count(), sentinel);
}

TEST_F(DepthFrame, MetricFillsANewImage) {
  for (const int mode : {1, 2}) {
    camera.m_depthmode = mode;
    cv::Mat depth(16, 20, CV_32FC1, cv::Scalar(sentinel));
    const cv::Mat other = depth;
    camera.getDepthFrame(disparity, depth);
    EXPECT_TRUE(sameBits(depth, metricDepth(disparity, expectedModel(mode)))) << mode;
    EXPECT_EQ(cv::countNonZero(other != sentinel), 0);
    // In place: the disparity is read before it is replaced.
    cv::Mat both = disparity.clone();
    camera.getDepthFrame(both, both);
    EXPECT_TRUE(sameBits(both, depth));
  }
}

// A header without a reference count, as a wrapper of foreign memory makes it.
TEST_F(DepthFrame, MetricOfAPartOfItsOwnOutput) {
  for (const int mode : {1, 2}) {
    for (const cv::Size size : {cv::Size(20, 16), cv::Size(20, 12)}) {
      camera.m_depthmode = mode;
      for (const int shift : {0, 1}) {
        cv::Mat memory(17, 20, CV_32FC1);
        cv::randu(memory, 1, 32);
        cv::Mat depth = memory.clone();
        cv::Mat source(size, CV_32FC1, depth.ptr<float>() + shift);
        const cv::Mat expected = metricDepth(source.clone(), expectedModel(mode));
        camera.getDepthFrame(source, depth);
        EXPECT_TRUE(sameBits(depth, expected)) << mode << " " << size << " " << shift;
      }
    }
  }
}

TEST_F(DepthFrame, MetricUsesTheLimits) {
  camera.m_depthmode = 2;
  camera.m_minDepth = 2.0F;
  camera.m_maxDepth = 3.0F;
  disparity = (cv::Mat_<float>(1, 3) << 1.5F, 2.5F, 0.4F);
  camera.m_translation = (cv::Mat_<double>(3, 1) << 0, 350, 0);
  cv::Mat depth;
  camera.getDepthFrame(disparity, depth);  // b f = 7
  EXPECT_EQ(depth.at<float>(0), -1.0F);
  EXPECT_NEAR(depth.at<float>(1), 2.8, 1e-6);
  EXPECT_EQ(depth.at<float>(2), -1.0F);
}

TEST_F(DepthFrame, MetricWithoutCalibrationIsZero) {
  camera.m_depthmode = 2;
  camera.m_rectCameraMatrix.release();
  disparity.setTo(5);
  cv::Mat depth;
  camera.getDepthFrame(disparity, depth);
  EXPECT_EQ(cv::countNonZero(depth), 0);
  camera.m_translation.release();
  camera.getDepthFrame(disparity, depth);
  EXPECT_EQ(cv::countNonZero(depth), 0);
}

TEST_F(DepthFrame, MetricOfNothingIsEmptyAndOfAnotherTypeAnError) {
  cv::Mat empty;
  cv::Mat depth;
  camera.getDepthFrame(empty, depth);
  EXPECT_TRUE(depth.empty());
  cv::Mat bytes(3, 3, CV_8UC1);
  EXPECT_THROW(camera.getDepthFrame(bytes, depth), cv::Exception);
  camera.m_rectCameraMatrix = cv::Mat::eye(3, 3, CV_32F);
  EXPECT_THROW(camera.getDepthFrame(disparity, depth), cv::Exception);
}
