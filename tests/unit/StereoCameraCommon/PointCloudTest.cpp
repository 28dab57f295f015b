// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <cmath>
#include <thread>

#include <gtest/gtest.h>

#include "src/core/Cloud.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/FedCamera.hpp"

using std::chrono::microseconds;
using stereo::core::CloudForm;
using stereo::core::CloudImages;
using stereo::core::CloudModel;
using stereo::test::await;
using stereo::test::FedCamera;
using stereo::test::RectifiedFrame;

namespace {

// Clouds of a view and a disparity that are published by hand, on a camera without any worker.
class PointCloud : public testing::Test {
protected:
  struct Camera : FedCamera {
    Camera() : FedCamera([](int, RectifiedFrame&) { return false; }) {
      m_translation = (cv::Mat_<double>(3, 1) << -60, 3, 4);
      m_rectCameraMatrix = (cv::Mat_<double>(3, 3) << 20, 0, 15.5, 0, 21, 15.75, 0, 0, 1);
      m_rectFrameSize = {32, 32};
      m_leftXi = cv::Mat(1, 1, CV_64F, cv::Scalar(1.25));
      m_threshold = 14;
    }
    ~Camera() override {
      // The worker calls virtual operations, so it must end before this class is destroyed.
      stopStereoCompute();
      stopCapture();
    }
    void getDepthFrame(cv::Mat& disparity, cv::Mat& depth) override {
      // Whether another thread could lock the mutex now.
      std::thread([this] {
        const std::unique_lock lock(m_disparityMutex, std::try_to_lock);
        mutexFree = lock.owns_lock();
      }).join();
      ++conversions;
      FedCamera::getDepthFrame(disparity, depth);
    }
    using FedCamera::getDepthFrame;
    std::atomic<bool> mutexFree{false};
    std::atomic<int> conversions{0};
  };

  PointCloud() {
    cv::randu(view, 0, 256);
    cv::randu(disparity, 0.5, 20);
    disparity.setTo(-1, disparity > 15);
    camera.m_rawFrame.timestamp = microseconds(4321);
    camera.m_disparityFrame.timestamp = microseconds(5);
  }

  // Calls `read` while results are published.
  template <typename Read>
  bool whilePublishing(Read read) {
    std::atomic<bool> done{false};
    bool answer = false;
    std::thread reader([&] {
      answer = read();
      done = true;
    });
    EXPECT_TRUE(await([&] {
      if (!done) {
        camera.publishDisparity(view, disparity);
      }
      return done.load();
    }));
    reader.join();
    return answer;
  }

  stereo::core::SampledCloud expected(int mode, CloudForm form) {
    CloudModel model;
    model.mode = mode;
    model.fx = 20;
    model.fy = 21;
    model.cx = 15.5;
    model.cy = 15.75;
    model.baselineMillimeters = std::sqrt(3600.0 + 9 + 16);
    model.xi = 1.25;
    model.threshold = 14;
    CloudImages images{view, disparity, cv::Mat()};
    camera.FedCamera::getDepthFrame(disparity, images.depth);
    return sampleCloud(images, model, form);
  }

  Camera camera;
  cv::Mat view = cv::Mat(32, 32, CV_8UC3);
  cv::Mat disparity = cv::Mat(32, 32, CV_32FC1);
  microseconds timestamp{0};
};

}  // namespace

TEST_F(PointCloud, PlainAppendsEveryPoint) {
  for (const int mode : {1, 2}) {
    camera.m_depthmode = mode;
    const auto points = expected(mode, CloudForm::plain);
    ASSERT_GT(points.size(), 3U) << mode;
    std::vector<cv::Vec3f> cloud{{1, 2, 3}};
    for (std::size_t calls = 1; calls <= 2; ++calls) {
      EXPECT_TRUE(whilePublishing([&] { return camera.getPointCloud(cloud, timestamp); }));
      ASSERT_EQ(cloud.size(), 1 + calls * points.size());
    }
    EXPECT_EQ(cloud[0], cv::Vec3f(1, 2, 3));
    for (std::size_t k = 0; k < points.size(); ++k) {
      EXPECT_EQ(cloud[1 + k], points[k].point);
      EXPECT_EQ(cloud[1 + points.size() + k], points[k].point);
    }
  }
}

TEST_F(PointCloud, ColoredAppendsEveryPointWithTheColorOfItsPixel) {
  for (const int mode : {1, 2}) {
    camera.m_depthmode = mode;
    const auto points = expected(mode, CloudForm::colored);
    ASSERT_GT(points.size(), 3U) << mode;
    std::vector<PCL> cloud(1);
    EXPECT_TRUE(whilePublishing([&] { return camera.getPointCloud(cloud, timestamp); }));
    ASSERT_EQ(cloud.size(), 1 + points.size());
    for (std::size_t k = 0; k < points.size(); ++k) {
      EXPECT_EQ(cloud[1 + k].point, points[k].point);
      EXPECT_EQ(cloud[1 + k].color, view.at<cv::Vec3b>(points[k].row, points[k].col));
    }
  }
}

TEST(Pcl, StartsAsZeros) {
  const PCL point;
  EXPECT_EQ(point.point, cv::Vec3f(0, 0, 0));
  EXPECT_EQ(point.color, cv::Vec3b(0, 0, 0));
}

TEST_F(PointCloud, TheStampIsTheNewestFrames) {
  std::vector<cv::Vec3f> plain;
  whilePublishing([&] { return camera.getPointCloud(plain, timestamp); });
  EXPECT_EQ(timestamp, microseconds(4321));
  std::vector<PCL> colored;
  timestamp = microseconds(0);
  whilePublishing([&] { return camera.getPointCloud(colored, timestamp); });
  EXPECT_EQ(timestamp, microseconds(4321));
}

TEST_F(PointCloud, DepthComesThroughTheVirtualTableUnlockedOnlyInThePlainForm) {
  // A publisher may hold the mutex at that moment, so try more than once.
  std::vector<cv::Vec3f> plain;
  EXPECT_TRUE(await([&] {
    whilePublishing([&] { return camera.getPointCloud(plain, timestamp); });
    return camera.mutexFree.load();
  }));
  std::vector<PCL> colored;
  EXPECT_TRUE(whilePublishing([&] { return camera.getPointCloud(colored, timestamp); }));
  EXPECT_FALSE(camera.mutexFree);
  EXPECT_GE(camera.conversions, 2);
}

TEST_F(PointCloud, EmptyDisparityLeavesTheVectorAndAnswersForIt) {
  disparity.release();
  for (const int mode : {1, 2}) {
    camera.m_depthmode = mode;
    std::vector<cv::Vec3f> none;
    EXPECT_FALSE(whilePublishing([&] { return camera.getPointCloud(none, timestamp); }));
    std::vector<PCL> one(1);
    EXPECT_TRUE(whilePublishing([&] { return camera.getPointCloud(one, timestamp); }));
    EXPECT_EQ(one.size(), 1U);
  }
}

TEST_F(PointCloud, OtherModesGiveNoPoints) {
  camera.m_depthmode = 3;
  std::vector<cv::Vec3f> none;
  EXPECT_FALSE(whilePublishing([&] { return camera.getPointCloud(none, timestamp); }));
}

TEST_F(PointCloud, WithoutABuiltCameraMatrixThereAreNoPoints) {
  camera.m_rectCameraMatrix.release();
  camera.m_leftXi.release();
  for (const int mode : {1, 2}) {
    camera.m_depthmode = mode;
    std::vector<cv::Vec3f> none;
    EXPECT_FALSE(whilePublishing([&] { return camera.getPointCloud(none, timestamp); }));
    std::vector<PCL> noneColored;
    EXPECT_FALSE(whilePublishing([&] { return camera.getPointCloud(noneColored, timestamp); }));
  }
}

TEST_F(PointCloud, MalformedCalibrationIsAnErrorForTheCaller) {
  camera.m_leftXi = cv::Mat::ones(1, 1, CV_32F);
  std::vector<cv::Vec3f> cloud;
  EXPECT_TRUE(whilePublishing([&] {
    EXPECT_THROW(camera.getPointCloud(cloud, timestamp), cv::Exception);
    return true;
  }));
}

TEST_F(PointCloud, WaitsWithoutAWorkerUntilSomebodyPublishes) {
  std::atomic<bool> done{false};
  std::vector<PCL> cloud;
  std::thread reader([&] {
    camera.getPointCloud(cloud, timestamp);
    done = true;
  });
  EXPECT_FALSE(await([&] { return done.load(); }, std::chrono::milliseconds(100)));
  EXPECT_TRUE(await([&] {
    camera.publishDisparity(view, disparity);
    return done.load();
  }));
  reader.join();
}

TEST_F(PointCloud, WaitingReadersAreReleasedByEitherStop) {
  for (const bool capture : {false, true}) {
    camera.startStereoCompute();
    std::vector<cv::Vec3f> plain{{1, 2, 3}};
    std::vector<PCL> colored(1);
    std::atomic<int> waiting{0};
    std::thread first([&] {
      ++waiting;
      EXPECT_FALSE(camera.getPointCloud(plain, timestamp));
      --waiting;
    });
    std::thread second([&] {
      microseconds other{7};
      ++waiting;
      EXPECT_FALSE(camera.getPointCloud(colored, other));
      EXPECT_EQ(other.count(), 7);
      --waiting;
    });
    EXPECT_TRUE(await([&] { return waiting == 2; }));
    // A reader announces its wait just before it waits; a stop reaches only readers that wait.
    EXPECT_TRUE(await([&] {
      if (capture) {
        camera.stopCapture();
      } else {
        camera.stopStereoCompute();
        camera.startStereoCompute();
      }
      return waiting == 0;
    }));
    first.join();
    second.join();
    EXPECT_EQ(plain.size(), 1U);
    EXPECT_EQ(colored.size(), 1U);
  }
}
