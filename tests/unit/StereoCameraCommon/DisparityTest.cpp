// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "tests/support/Await.hpp"
#include "tests/support/FedCamera.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/OutputCapture.hpp"

using std::chrono::microseconds;
using stereo::test::await;
using stereo::test::FedCamera;
using stereo::test::OutputCapture;
using stereo::test::recordTexts;
using stereo::test::RectifiedFrame;
using stereo::test::sameBits;
using stereo::test::shiftedPair;
using stereo::test::TestCamera;
using testing::ElementsAre;

namespace {

const cv::Size pairSize(96, 40);

// The same pair over and over.
FedCamera::Feed always(const RectifiedFrame& frame) {
  return [frame](int, RectifiedFrame& out) {
    out = frame;
    return true;
  };
}

// The next result.
StereoCamera::TimeFrame nextDisparity(TestCamera& camera) {
  StereoCamera::TimeFrame result;
  EXPECT_TRUE(await([&] {
    const std::lock_guard lock(camera.m_disparityMutex);
    result = camera.m_disparityFrame;
    return result.timestamp.count() != 0;
  }));
  return result;
}

cv::Mat pixels(const cv::Mat& sixteenths) {
  cv::Mat result(sixteenths.size(), CV_32FC1);
  for (int r = 0; r < result.rows; ++r) {
    for (int c = 0; c < result.cols; ++c) {
      result.at<float>(r, c) = static_cast<float>(sixteenths.at<short>(r, c)) / 16;
    }
  }
  return result;
}

}  // namespace

TEST(StopStereoCompute, WithoutAWorkerIsTrueAndSilent) {
  FedCamera camera(always({}));
  const OutputCapture out(1);
  const OutputCapture err(2);
  EXPECT_TRUE(camera.stopStereoCompute());
  EXPECT_EQ(out.text() + err.text(), "");
}

TEST(StartStereoCompute, PausesReportsAndStarts) {
  const OutputCapture out(1);
  FedCamera camera(always(shiftedPair(pairSize, 8, 1)));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(camera.startStereoCompute());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5));
  EXPECT_TRUE(camera.m_isComputing);
  EXPECT_TRUE(await([&] { return camera.calls() > 1; }));
  EXPECT_TRUE(camera.stopStereoCompute());
  EXPECT_FALSE(camera.m_isComputing);
  EXPECT_EQ(camera.m_computeThread, nullptr);
  EXPECT_THAT(recordTexts(out.text()),
              ElementsAre("Start stereo computing ...\n", "Exit compute disparity worker ...\n",
                          "Stop stereo compute done.\n"));
}

TEST(StartStereoCompute, NothingIsReportedBeforeThePauseIsOver) {
  const OutputCapture out(1);
  FedCamera camera(always(shiftedPair(pairSize, 8, 1)));
  const auto timestampOf = [](const std::string& record) { return record.substr(0, 26); };
  char before[64];
  timeval now{};
  gettimeofday(&now, nullptr);
  now.tv_usec += 5000;
  now.tv_sec += now.tv_usec / 1000000;
  now.tv_usec %= 1000000;
  tm local{};
  localtime_r(&now.tv_sec, &local);
  const std::size_t length = std::strftime(before, sizeof before, "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(before + length, sizeof before - length, ".%06ld", static_cast<long>(now.tv_usec));
  camera.startStereoCompute();
  camera.stopStereoCompute();
  EXPECT_GE(timestampOf(out.text()), std::string(before));
}

TEST(StartStereoCompute, IsRefusedWhileAWorkerRuns) {
  FedCamera camera(always(shiftedPair(pairSize, 8, 1)));
  ASSERT_TRUE(camera.startStereoCompute());
  std::thread* const worker = camera.m_computeThread;
  const OutputCapture out(1);
  const OutputCapture err(2);
  EXPECT_FALSE(camera.startStereoCompute());
  EXPECT_EQ(out.text() + err.text(), "");
  EXPECT_EQ(camera.m_computeThread, worker);
  EXPECT_TRUE(camera.stopStereoCompute());
  // And is free again afterwards.
  EXPECT_TRUE(camera.startStereoCompute());
  const int calls = camera.calls();
  EXPECT_TRUE(await([&] { return camera.calls() > calls + 2; }));
}

TEST(DisparityWorker, SemiGlobalMatchingOnColor) {
  const RectifiedFrame pair = shiftedPair(pairSize, 8, 2);
  FedCamera camera(always(pair));
  camera.m_algorithm = 0;
  camera.startStereoCompute();
  const auto published = nextDisparity(camera);
  cv::Mat raw;
  const auto matcher = cv::StereoSGBM::create(0, 32, 9, 1944, 7776, 0, 0, 0, 0, 0, 0);
  matcher->compute(pair.left, pair.right, raw);
  EXPECT_TRUE(sameBits(published.second, pixels(raw)));
  EXPECT_TRUE(sameBits(published.first, pair.view));
  EXPECT_EQ(published.timestamp, pair.timestamp);
  EXPECT_NEAR(published.second.at<float>(20, 70), 8.0, 0.2);  // the shift itself
}

TEST(DisparityWorker, BlockMatchingOnGray) {
  const RectifiedFrame pair = shiftedPair(pairSize, 11, 3);
  FedCamera camera(always(pair));
  camera.m_algorithm = 1;
  camera.startStereoCompute();
  const auto published = nextDisparity(camera);
  const auto matcher = cv::StereoBM::create(32, 9);
  matcher->setPreFilterCap(31);
  matcher->setMinDisparity(0);
  matcher->setTextureThreshold(10);
  matcher->setUniquenessRatio(15);
  matcher->setSpeckleWindowSize(100);
  matcher->setSpeckleRange(32);
  matcher->setDisp12MaxDiff(1);
  cv::Mat left;
  cv::Mat right;
  cv::Mat raw;
  cv::cvtColor(pair.left, left, cv::COLOR_BGR2GRAY);
  cv::cvtColor(pair.right, right, cv::COLOR_BGR2GRAY);
  matcher->compute(left, right, raw);
  EXPECT_TRUE(sameBits(published.second, pixels(raw)));
  EXPECT_NEAR(published.second.at<float>(20, 70), 11.0, 0.2);
  EXPECT_EQ(published.second.at<float>(0, 0), -1.0F);  // no match: -16 sixteenths
}

TEST(DisparityWorker, AnyOtherAlgorithmPublishesEmptyDisparities) {
  for (const int algorithm : {2, -1}) {
    const RectifiedFrame pair = shiftedPair(pairSize, 8, 4);
    FedCamera camera(always(pair));
    camera.m_algorithm = algorithm;
    camera.startStereoCompute();
    const auto published = nextDisparity(camera);
    EXPECT_TRUE(published.second.empty());
    EXPECT_TRUE(sameBits(published.first, pair.view));
    EXPECT_EQ(published.timestamp, pair.timestamp);
    // Readers are notified all the same.
    std::vector<cv::Vec3f> points;
    microseconds timestamp{0};
    EXPECT_FALSE(camera.getPointCloud(points, timestamp));
    EXPECT_TRUE(points.empty());
    EXPECT_TRUE(camera.m_isComputing);
  }
}

TEST(DisparityWorker, AnAlgorithmChangedMeanwhileHasNoMatcher) {
  const RectifiedFrame pair = shiftedPair(pairSize, 8, 4);
  FedCamera camera([&](int call, RectifiedFrame& out) {
    out = pair;
    out.timestamp = microseconds(call + 1);
    if (call == 3) {
      camera.m_algorithm = 1;
    }
    return true;
  });
  camera.m_algorithm = 0;
  camera.startStereoCompute();
  EXPECT_TRUE(await([&] {
    const std::lock_guard lock(camera.m_disparityMutex);
    return camera.m_disparityFrame.timestamp.count() > 4 && camera.m_disparityFrame.second.empty();
  }));
}

TEST(DisparityWorker, SkipsCyclesWithoutAFrameSilently) {
  const OutputCapture out(1);
  const OutputCapture err(2);
  FedCamera camera([](int call, RectifiedFrame& frame) {
    frame = shiftedPair(pairSize, 8, 1);
    frame.timestamp = microseconds(call);
    return call == 100;
  });
  camera.startStereoCompute();
  EXPECT_EQ(nextDisparity(camera).timestamp, microseconds(100));
  camera.stopStereoCompute();
  EXPECT_EQ(recordTexts(out.text()).size(), 3U);
  EXPECT_EQ(err.text(), "");
}

TEST(DisparityWorker, PublishesCopiesAndKeepsTheLastAfterItsStop) {
  const RectifiedFrame pair = shiftedPair(pairSize, 8, 5);
  FedCamera camera(always(pair));
  camera.startStereoCompute();
  nextDisparity(camera);
  camera.stopStereoCompute();
  EXPECT_NE(camera.m_disparityFrame.first.data, pair.view.data);
  EXPECT_TRUE(sameBits(camera.m_disparityFrame.first, pair.view));
  EXPECT_FALSE(camera.m_disparityFrame.second.empty());
}

// The lock is held for a millisecond after the notification, so that a woken reader cannot miss its result.
TEST(DisparityWorker, HoldsItsMutexWhileItSleeps) {
  FedCamera camera(always(shiftedPair({64, 16}, 2, 5)));
  camera.m_algorithm = 2;
  camera.startStereoCompute();
  nextDisparity(camera);
  // A cycle without matching takes microseconds, so the worker sleeps nearly all of the time: whoever tries
  // to lock the mutex mostly finds it locked.
  int taken = 0;
  int tries = 0;
  EXPECT_TRUE(await([&] {
    const std::unique_lock lock(camera.m_disparityMutex, std::try_to_lock);
    taken += lock.owns_lock() ? 0 : 1;
    return ++tries == 200;
  }));
  EXPECT_GT(taken, tries / 4);
}

TEST(StopStereoCompute, EndsAWorkerThatWaitsForAFrame) {
  for (const bool captureStarted : {false, true}) {
    TestCamera camera([](int) { return cv::Mat(); });
    if (captureStarted) {
      camera.startCapture(false, false);
    }
    EXPECT_TRUE(camera.startStereoCompute());
    EXPECT_TRUE(camera.stopStereoCompute());
    EXPECT_TRUE(camera.stopStereoCompute());
  }
}

TEST(StopStereoCompute, InTheWrongOrderAndTwice) {
  TestCamera camera([frame = shiftedPair({48, 24}, 4, 1).left](int) { return frame; });
  stereo::test::calibrate(camera);
  camera.m_rawFrameSize = {48, 24};
  camera.m_rectFrameSize = {64, 32};
  camera.startCapture(false, false);
  camera.startStereoCompute();
  nextDisparity(camera);
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_TRUE(camera.m_isComputing);
  EXPECT_TRUE(camera.stopStereoCompute());
  EXPECT_TRUE(camera.stopStereoCompute());
  EXPECT_EQ(camera.m_computeThread, nullptr);
}

// Stopping only the disparity worker must not release a host's reader.
TEST(StopStereoCompute, LeavesReadersOfFramesWaiting) {
  FedCamera camera(always(shiftedPair(pairSize, 8, 1)));
  camera.startStereoCompute();
  std::atomic<bool> returned{false};
  std::thread reader([&] {
    cv::Mat left;
    cv::Mat right;
    microseconds timestamp{0};
    EXPECT_FALSE(camera.getStereoFrame(left, right, timestamp));  // the end of the test
    returned = true;
  });
  camera.stopStereoCompute();
  EXPECT_FALSE(await([&] { return returned.load(); }, std::chrono::milliseconds(100)));
  EXPECT_TRUE(await([&] {
    camera.stopCapture();
    return returned.load();
  }));
  reader.join();
}

TEST(DisparityWorkerDeathTest, ExceptionsEndTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto run = [] {
    FedCamera camera([](int, RectifiedFrame& frame) {
      frame = shiftedPair(pairSize, 8, 1);
      frame.right = frame.right.rowRange(0, 10);  // not of the left one's size
      return true;
    });
    camera.startStereoCompute();
    await([] { return false; });
  };
  EXPECT_DEATH(run(), "terminate called");
}

TEST(DisparityWorkerDeathTest, DestroyingARunningCameraEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto run = [] {
    StereoCamera camera(stereo::test::noDevice);
    camera.startStereoCompute();
  };
  EXPECT_DEATH(run(), "terminate called");
}
