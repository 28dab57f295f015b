// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/ScriptedCapture.hpp"
#include "tests/support/TestCamera.hpp"

using std::chrono::microseconds;
using stereo::test::await;
using stereo::test::calibrate;
using stereo::test::Gate;
using stereo::test::halfSize;
using stereo::test::noise;
using stereo::test::OutputCapture;
using stereo::test::recordTexts;
using stereo::test::sameBits;
using stereo::test::ScriptedCapture;
using stereo::test::someCalibration;
using stereo::test::TestCamera;
using stereo::test::timeOfDay;
using testing::ElementsAre;

namespace {

constexpr int warmUpReads = 10;

ScriptedCapture::Script always(const cv::Mat& frame) {
  return [frame](int) { return frame; };
}

cv::Mat matrixOf(std::initializer_list<double> values) {
  cv::Mat matrix(3, 3, CV_64F);
  std::copy(values.begin(), values.end(), matrix.begin<double>());
  return matrix;
}

}  // namespace

TEST(StopCapture, WithoutAWorkerIsTrueAndSilent) {
  TestCamera camera(always(noise({8, 4}, 1)));
  const OutputCapture out(1);
  const OutputCapture err(2);
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_FALSE(camera.isOpened());
  EXPECT_EQ(out.text(), "");
  EXPECT_EQ(err.text(), "");
}

TEST(StartCapture, ReportsItsStagesInOrder) {
  const OutputCapture out(1);
  {
    TestCamera camera(always(noise({8, 4}, 1)));
    EXPECT_TRUE(camera.startCapture(false, false));
    EXPECT_TRUE(await([&] { return camera.device().reads() > warmUpReads; }));
    EXPECT_TRUE(camera.stopCapture());
    EXPECT_EQ(camera.m_captureThread, nullptr);
    EXPECT_TRUE(camera.stopCapture());
  }
  EXPECT_THAT(recordTexts(out.text()), ElementsAre("Initialize parameters OK!\n", "Start capture ...\n",
                                                   "Exit capture frame worker ...\n", "Stop get frame done.\n"));
}

TEST(StartCapture, WithAClosedDevicePreparesAndEnds) {
  const OutputCapture out(1);
  TestCamera camera(always(noise({8, 4}, 1)));
  camera.m_isOpened = false;
  EXPECT_TRUE(camera.startCapture(false, false));
  EXPECT_NE(camera.m_captureThread, nullptr);
  EXPECT_TRUE(await([&] { return recordTexts(out.text()).size() == 3; }));
  EXPECT_EQ(camera.device().reads(), warmUpReads);
  EXPECT_TRUE(camera.m_rawFrame.first.empty());
}

TEST(StartCapture, WithoutADeviceObjectStillEndsInOrder) {
  TestCamera camera("/nonexistent/settings.yml");
  ASSERT_EQ(camera.m_videoCapture, nullptr);
  EXPECT_TRUE(camera.startCapture(false, false));
  EXPECT_TRUE(camera.stopCapture());
}

TEST(StartCapture, RequestsOnlyEverTurnOn) {
  TestCamera camera(always(noise({8, 4}, 1)));
  camera.startCapture(true, false);  // no stream mode: nothing is opened
  EXPECT_TRUE(camera.m_useTransmit);
  EXPECT_FALSE(camera.m_useShareMemory);
  camera.startCapture(false, false);
  EXPECT_TRUE(camera.m_useTransmit);
}

TEST(CaptureWorker, WarmsUpWithTenReadsAndTakesTheSizeOfTheLastGoodFrame) {
  Gate gate;
  TestCamera camera([&](int read) {
    if (read < warmUpReads) {
      return read == 9 ? cv::Mat() : noise({20 + 2 * read, 10}, read);
    }
    gate.pass();
    return cv::Mat();
  });
  camera.m_rawFrameSize = {3, 3};
  camera.startCapture(false, false);
  EXPECT_TRUE(await([&] { return camera.device().reads() > warmUpReads; }));
  EXPECT_EQ(camera.getRawFrameSize(), cv::Size(36, 10));
  EXPECT_TRUE(camera.m_rawFrame.first.empty());  // none of the ten is published
  gate.open();
}

TEST(CaptureWorker, KeepsTheSizeWhenWarmUpGivesNothing) {
  Gate gate;
  TestCamera camera([&](int read) {
    if (read >= warmUpReads) {
      gate.pass();
    }
    return cv::Mat();
  });
  camera.setRawFrameSize(halfSize);
  camera.startCapture(false, false);
  EXPECT_TRUE(await([&] { return camera.device().reads() > warmUpReads; }));
  EXPECT_EQ(camera.getRawFrameSize(), halfSize);
  EXPECT_EQ(camera.getRawFrameRate(), 30.0F);  // no pass published, the rate stays as it was
  gate.open();
}

TEST(CaptureWorker, PublishesBothHalvesMaskedWithTheTimeOfPublication) {
  Gate gate;
  const cv::Mat frame = noise({41, 20}, 7);  // odd width: the last column is dropped
  TestCamera camera([&](int read) {
    if (read >= warmUpReads) {
      gate.pass();
    }
    return frame;
  });
  camera.m_fisheyeRadius = 9;
  const microseconds before = timeOfDay();
  camera.startCapture(false, false);
  cv::Mat left;
  cv::Mat right;
  microseconds timestamp{0};
  std::thread reader([&] { EXPECT_TRUE(camera.getStereoFrame(left, right, timestamp)); });
  gate.open();
  reader.join();
  const microseconds after = timeOfDay();
  cv::Mat first = frame(cv::Rect(0, 0, 20, 20)).clone();
  cv::Mat second = frame(cv::Rect(20, 0, 20, 20)).clone();
  EXPECT_EQ(convertRawFisheyeImage(9, first, second), 0);
  EXPECT_TRUE(sameBits(left, first));
  EXPECT_TRUE(sameBits(right, second));
  EXPECT_LE(before, timestamp);
  EXPECT_LE(timestamp, after);
  EXPECT_GT(camera.getRawFrameRate(), 0.0F);
  EXPECT_NE(camera.getRawFrameRate(), 30.0F);
}

TEST(CaptureWorker, WithTheRadiusNobodySetOnlyOnePixelAnEyeIsLeft) {
  TestCamera camera(always(noise({20, 10}, 1)));
  camera.startCapture(false, false);
  cv::Mat left;
  cv::Mat right;
  microseconds timestamp{0};
  ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
  EXPECT_EQ(cv::countNonZero(left.reshape(1)), 3);
  EXPECT_EQ(cv::countNonZero(right.reshape(1)), 3);
  EXPECT_NE(left.at<cv::Vec3b>(5, 5), cv::Vec3b());
}

TEST(CaptureWorker, SkipsEmptyFramesWithoutPublishing) {
  Gate gate;
  TestCamera camera([&](int read) {
    if (read < warmUpReads) {
      return noise({20, 10}, 1);
    }
    // Every good frame is followed by a thousand failed reads.
    if ((read - warmUpReads) % 1000 != 999) {
      return cv::Mat();
    }
    return gate.pass() ? noise({20, 10}, read) : cv::Mat();
  });
  camera.startCapture(false, false);
  cv::Mat left;
  cv::Mat right;
  microseconds first{0};
  std::thread reader([&] { EXPECT_TRUE(camera.getStereoFrame(left, right, first)); });
  gate.grant(1);
  // The one frame may have been published before the reader waited; another one then releases it.
  std::atomic<bool> done{false};
  std::thread more([&] {
    while (!done) {
      gate.grant(1);
      std::this_thread::yield();
    }
  });
  reader.join();
  done = true;
  more.join();
  EXPECT_EQ(left.size(), cv::Size(10, 10));
  gate.open();
}

TEST(CaptureWorker, SurvivesFramesThatChangeSizeTypeAndShrinkToOnePixel) {
  const std::vector<cv::Mat> frames = {noise({20, 10}, 1), noise({1, 1}, 2),           noise({64, 48}, 3),
                                       cv::Mat(),          noise({30, 8}, 4, CV_8UC1), noise({2, 1}, 5),
                                       noise({1, 300}, 6), noise({12, 6}, 7, CV_16UC3)};
  TestCamera camera([&](int read) { return frames[static_cast<std::size_t>(read) % frames.size()]; });
  camera.m_fisheyeRadius = 4;
  camera.startCapture(false, false);
  bool sawGray = false;
  bool sawEmpty = false;
  bool sawSmall = false;
  for (int i = 0; i < 100000 && !(sawGray && sawEmpty && sawSmall); ++i) {
    cv::Mat left;
    cv::Mat right;
    microseconds timestamp{0};
    const bool whole = camera.getStereoFrame(left, right, timestamp);
    EXPECT_EQ(left.size(), right.size());
    EXPECT_EQ(left.type(), right.type());
    EXPECT_EQ(whole, !left.empty());
    if (left.type() == CV_8UC1 && !left.empty()) {
      // The mask does not apply to such an image: it arrives as delivered.
      EXPECT_TRUE(sameBits(left, frames[4](cv::Rect(0, 0, 15, 8))));
      sawGray = true;
    }
    sawEmpty = sawEmpty || left.empty();
    sawSmall = sawSmall || left.size() == cv::Size(1, 1);
  }
  EXPECT_TRUE(sawGray);
  EXPECT_TRUE(sawEmpty);
  EXPECT_TRUE(sawSmall);
}

TEST(CaptureWorker, ADeviceThatFailsWithoutTouchingItsArgumentDoesNotRepeatTheLastFrame) {
  struct SloppyCapture : ScriptedCapture {
    using ScriptedCapture::ScriptedCapture;
    bool read(cv::OutputArray image) override {
      const int number = count++;
      if (number == warmUpReads) {
        noise({20, 10}, 1).copyTo(image);
        return true;
      }
      return false;
    }
    std::atomic<int> count{0};
  };
  TestCamera camera;
  auto* const device = new SloppyCapture(always(cv::Mat()));
  camera.install(device);
  camera.startCapture(false, false);
  EXPECT_TRUE(await([&] { return device->count > warmUpReads + 1; }));
  microseconds timestamp{0};
  {
    const std::lock_guard lock(camera.m_frameMutex);
    timestamp = camera.m_rawFrame.timestamp;
  }
  EXPECT_NE(timestamp.count(), 0);
  EXPECT_TRUE(await([&] { return device->count > 1000; }));
  const std::lock_guard lock(camera.m_frameMutex);
  EXPECT_EQ(camera.m_rawFrame.timestamp, timestamp);
}

TEST(StartCapture, BuildsCameraMatrixAndMapsAsStated) {
  TestCamera camera(always(noise(halfSize, 1)));
  calibrate(camera);
  camera.setRawFrameSize({1856, 800});
  camera.setRectFrameSize({37, 29});
  camera.m_hFov = 100;
  camera.startCapture(false, false);
  const double pi = 3.141592653589793;
  const double f = (37.0 / 2) / std::tan(100.0 / 180 * pi / 2);
  const cv::Mat P = matrixOf({f, 0, 37.0 / 2 - 0.5, 0, f, 29.0 / 2 - 0.5, 0, 0, 1});
  EXPECT_TRUE(sameBits(camera.m_rectCameraMatrix, P));
  const double alpha = 180.0 / 222 * pi;
  const cv::Mat L = matrixOf(
      {37 / alpha, 0, -37.0 * (pi - alpha) / (2 * alpha), 0, 29 / alpha, -29.0 * (pi - alpha) / (2 * alpha), 0, 0, 1});
  for (const int eye : {0, 1}) {
    const auto params = someCalibration(eye + 1);
    const double xi = params[2].at<double>(0, 0);
    cv::Mat columns;
    cv::Mat rows;
    initRectifyMap(params[0], params[1], params[3], P, xi, xi, {37, 29}, 2, columns, rows);
    EXPECT_TRUE(sameBits(camera.m_rectifyMaps[eye][0], columns)) << eye;
    EXPECT_TRUE(sameBits(camera.m_rectifyMaps[eye][1], rows)) << eye;
    initRectifyMap(params[0], params[1], params[3], L, xi, 0, {37, 29}, 1, columns, rows);
    EXPECT_TRUE(sameBits(camera.m_lonLatMaps[eye][0], columns)) << eye;
    EXPECT_TRUE(sameBits(camera.m_lonLatMaps[eye][1], rows)) << eye;
  }
}

TEST(StartCapture, ScalesTheIntrinsicMatricesInPlaceEveryTime) {
  TestCamera camera(always(noise(halfSize, 1)));
  calibrate(camera);
  camera.setRawFrameSize(halfSize);
  camera.setRectFrameSize({8, 6});
  std::vector<cv::Mat> shared;
  camera.getCalibParams(shared, false);
  camera.getCalibParams(shared, true);
  for (const double factor : {0.5, 0.25}) {
    camera.startCapture(false, false);
    for (const int eye : {0, 1}) {
      cv::Mat expected = someCalibration(eye + 1)[0].clone();
      expected.rowRange(0, 2) *= factor;
      std::vector<cv::Mat> params;
      camera.getCalibParams(params, eye == 1);
      EXPECT_TRUE(sameBits(params[0], expected)) << eye;
      EXPECT_TRUE(sameBits(shared[static_cast<std::size_t>(eye) * 6], expected)) << eye;  // headers given out follow
      EXPECT_EQ(params[0].at<double>(2, 2), 1.0);
      EXPECT_FALSE(params[5].empty());
    }
  }
  EXPECT_TRUE(camera.stopCapture());
}

TEST(StartCapture, LeavesTheMapsAloneWithoutSizeOrCalibration) {
  const auto startedWithout = [](auto&& spoil) {
    TestCamera camera(always(noise(halfSize, 1)));
    calibrate(camera);
    camera.setRectFrameSize({8, 6});
    camera.setRawFrameSize(halfSize);
    spoil(camera);
    EXPECT_TRUE(camera.startCapture(false, false));
    return camera.m_rectCameraMatrix.empty() && camera.m_rectifyMaps[0][0].empty() && camera.m_lonLatMaps[1][1].empty();
  };
  EXPECT_FALSE(startedWithout([](TestCamera&) {}));
  EXPECT_TRUE(startedWithout([](TestCamera& c) { c.setRectFrameSize({0, 6}); }));
  EXPECT_TRUE(startedWithout([](TestCamera& c) { c.setRectFrameSize({8, -1}); }));
  for (cv::Mat TestCamera::*matrix :
       {&TestCamera::m_translation, &TestCamera::m_leftXi, &TestCamera::m_leftRotation, &TestCamera::m_leftDistortion,
        &TestCamera::m_rightXi, &TestCamera::m_rightRotation, &TestCamera::m_rightIntrinsic,
        &TestCamera::m_rightDistortion}) {
    EXPECT_TRUE(startedWithout([&](TestCamera& c) { (c.*matrix).release(); }));
  }
}

TEST(StartCapture, MalformedCalibrationIsAnErrorForTheCaller) {
  const auto start = [](auto&& spoil) {
    TestCamera camera(always(noise(halfSize, 1)));
    calibrate(camera);
    camera.setRectFrameSize({8, 6});
    spoil(camera);
    camera.startCapture(false, false);
  };
  EXPECT_NO_THROW(start([](TestCamera&) {}));
  // The left intrinsic matrix is not checked before the maps are built, so if it alone is missing, the start ends here.
  EXPECT_THROW(start([](TestCamera& c) { c.m_leftIntrinsic.release(); }), cv::Exception);
  EXPECT_THROW(start([](TestCamera& c) { c.m_leftIntrinsic = cv::Mat::eye(3, 3, CV_32F); }), cv::Exception);
  EXPECT_THROW(start([](TestCamera& c) { c.m_rightXi = cv::Mat::ones(1, 1, CV_32F); }), cv::Exception);
  EXPECT_THROW(start([](TestCamera& c) { c.m_rightDistortion = cv::Mat::zeros(1, 3, CV_64F); }), cv::Exception);
  EXPECT_THROW(start([](TestCamera& c) { c.m_leftRotation = cv::Mat::eye(2, 2, CV_64F); }), cv::Exception);
  EXPECT_THROW(start([](TestCamera& c) { c.setRectFrameSize({2147483647, 2147483647}); }), cv::Exception);
}

TEST(StartCapture, TwiceLeavesNoWorkerBehind) {
  std::atomic<int> reading{0};
  TestCamera camera([&](int) {
    ++reading;
    return noise({20, 10}, 1);
  });
  const OutputCapture out(1);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(camera.startCapture(false, false));
  }
  EXPECT_TRUE(await([&] { return recordTexts(out.text()).size() == 6; }));  // each reports its start
  cv::Mat frame;
  microseconds timestamp{0};
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(camera.getRawFrame(frame, timestamp));
  }
  EXPECT_TRUE(camera.stopCapture());
  const int reads = reading;
  std::vector<std::string> texts = recordTexts(out.text());
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "Exit capture frame worker ...\n"), 3);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "Stop get frame done.\n"), 1);
  EXPECT_EQ(texts.back(), "Stop get frame done.\n");
  EXPECT_EQ(reading, reads);
}

TEST(StartCaptureDeathTest, DestroyingARunningCameraEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        StereoCamera camera(stereo::test::noDevice);
        camera.startCapture(false, false);
      },
      "terminate called");
}
