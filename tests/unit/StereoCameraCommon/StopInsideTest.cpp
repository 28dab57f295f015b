// SPDX-License-Identifier: Apache-2.0
// Stopping in the middle of something: a cycle of the disparity worker, or the making of a cloud.
#include <atomic>
#include <condition_variable>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "src/StereoCameraCommon/ReadWatchdog.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/FedCamera.hpp"

using std::chrono::microseconds;
using std::chrono::steady_clock;
using stereo::test::await;
using stereo::test::FedCamera;
using stereo::test::Gate;
using stereo::test::RectifiedFrame;
using stereo::test::TestCamera;
using stereo::test::twoColors;

namespace {

// Delivers as many frames as are granted, to a disparity worker whose reads are counted.
class GatedCamera : public TestCamera {
public:
  GatedCamera() {
    install(new stereo::test::ScriptedCapture([this](int read) {
      return read < 10 || gate.pass() ? twoColors({64, 32}, {1, 2, 3}, {4, 5, 6}) : cv::Mat();
    }));
    stereo::test::calibrate(*this);
    m_fisheyeRadius = 1000;
    m_rawFrameSize = {64, 32};
    m_rectFrameSize = {16, 12};
    m_algorithm = 2;
  }
  ~GatedCamera() override {
    gate.open();
    stopStereoCompute();
    stopCapture();
  }

  using TestCamera::getRectStereoFrame;
  bool getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view, microseconds& timestamp) override {
    ++begun;
    return TestCamera::getRectStereoFrame(left, right, view, timestamp);
  }

  microseconds latestDisparity() {
    const std::lock_guard lock(m_disparityMutex);
    return m_disparityFrame.timestamp;
  }

  Gate gate;
  std::atomic<int> begun{0};
};

// Stops a camera from inside the metric depth of a cloud.
class StoppedFromInside : public FedCamera {
public:
  StoppedFromInside()
      : FedCamera([](int call, RectifiedFrame& frame) {
          frame = stereo::test::shiftedPair({32, 16}, 2, call);
          return true;
        }) {
    m_algorithm = 2;
  }
  ~StoppedFromInside() override {
    stopStereoCompute();
    stopCapture();
  }

  using FedCamera::getDepthFrame;
  void getDepthFrame(cv::Mat& disparity, cv::Mat& depth) override {
    if (!m_stopped.exchange(true)) {
      EXPECT_TRUE(stopStereoCompute());
      EXPECT_TRUE(stopCapture());
    }
    FedCamera::getDepthFrame(disparity, depth);
  }
  bool wasStopped() const { return m_stopped; }

private:
  std::atomic<bool> m_stopped{false};
};

template <typename Point>
void expectToReturn(bool capture, bool disparity) {
  StoppedFromInside camera;
  if (capture) {
    camera.install(new stereo::test::ScriptedCapture([](int) { return twoColors({64, 32}, {1, 2, 3}, {4, 5, 6}); }));
    camera.startCapture(false, false);
  }
  if (disparity) {
    camera.startStereoCompute();
  }
  std::atomic<bool> done{false};
  std::thread reader([&] {
    std::vector<Point> points(1);
    microseconds timestamp{0};
    EXPECT_TRUE(camera.getPointCloud(points, timestamp));
    done = true;
  });
  const cv::Mat view(16, 32, CV_8UC3, cv::Scalar::all(1));
  const bool returned = await([&] {
    if (!disparity && !camera.wasStopped()) {
      camera.publishDisparity(view, cv::Mat());
    }
    return done.load();
  });
  if (!returned) {
    ADD_FAILURE() << "a stop waits for a lock of its own thread";
    std::_Exit(1);  // nothing could end that thread
  }
  reader.join();
  EXPECT_TRUE(camera.wasStopped());
  // The lock was released.
  const std::unique_lock lock(camera.m_disparityMutex, std::try_to_lock);
  EXPECT_TRUE(lock.owns_lock());
}

}  // namespace

TEST(StopFromInside, AColoredCloudReturns) {
  for (const bool capture : {false, true}) {
    for (const bool disparity : {false, true}) {
      expectToReturn<PCL>(capture, disparity);
    }
  }
}

TEST(StopFromInside, APlainCloudReturns) {
  for (const bool disparity : {false, true}) {
    expectToReturn<cv::Vec3f>(true, disparity);
  }
}

TEST(StopStereoCompute, LetsTheReadInProgressGetItsFrameAndPublishIt) {
  GatedCamera camera;
  camera.startCapture(false, false);
  camera.startStereoCompute();
  ASSERT_TRUE(await([&] {
    camera.gate.grant();
    return camera.latestDisparity().count() != 0;
  }));
  // The worker is in its next read, and nothing comes.
  ASSERT_TRUE(await([&] { return camera.begun > 1; }));
  const int begun = camera.begun;
  const microseconds before = camera.latestDisparity();
  const auto asked = steady_clock::now();
  std::atomic<bool> done{false};
  std::thread stopper([&] {
    EXPECT_TRUE(camera.stopStereoCompute());
    done = true;
  });
  ASSERT_TRUE(await([&] { return !camera.m_isComputing; }));
  ASSERT_TRUE(await([&] {
    camera.gate.grant();
    return done.load();
  }));
  stopper.join();
  // A loaded machine may have been too slow to deliver in time.
  if (steady_clock::now() - asked < stereo::ReadWatchdog::firstGrace) {
    EXPECT_GT(camera.latestDisparity(), before);
  }
  EXPECT_LE(camera.begun, begun + 1);
}

// One wait for a notification must yield a frame.
TEST(StopStereoCompute, NotifiesNobodyBetweenFrames) {
  GatedCamera camera;
  camera.startCapture(false, false);
  camera.startStereoCompute();
  ASSERT_TRUE(await([&] { return camera.begun > 0; }));
  std::atomic<bool> waiting{false};
  std::atomic<bool> woken{false};
  std::thread reader([&] {
    std::unique_lock lock(camera.m_frameMutex);
    waiting = true;
    camera.m_frameCond.wait(lock);
    woken = true;
  });
  ASSERT_TRUE(await([&] { return waiting.load(); }));
  { const std::lock_guard itWaits(camera.m_frameMutex); }
  const auto asked = steady_clock::now();
  std::thread stopper([&] { camera.stopStereoCompute(); });
  ASSERT_TRUE(await([&] { return !camera.m_isComputing; }));
  const bool early = await([&] { return woken.load(); }, std::chrono::milliseconds(300));
  if (steady_clock::now() - asked < stereo::ReadWatchdog::firstGrace) {
    EXPECT_FALSE(early);
  }
  EXPECT_TRUE(await([&] {
    camera.gate.grant();
    return woken.load();
  }));
  reader.join();
  stopper.join();
}

TEST(StopStereoCompute, EndsTheReadWhereNoFrameComesForTwoSeconds) {
  GatedCamera camera;
  camera.startCapture(false, false);
  camera.startStereoCompute();
  ASSERT_TRUE(await([&] { return camera.begun > 0; }));
  const auto asked = steady_clock::now();
  EXPECT_TRUE(camera.stopStereoCompute());
  EXPECT_GE(steady_clock::now() - asked, stereo::ReadWatchdog::firstGrace);
  EXPECT_EQ(camera.latestDisparity().count(), 0);
}

TEST(StopStereoCompute, EndsTheReadAtOnceWhereTheCaptureHasStopped) {
  // Any attempt that a busy machine does not delay shows it.
  const bool quick = await([] {
    GatedCamera camera;
    camera.gate.open();
    camera.startCapture(false, false);
    camera.startStereoCompute();
    EXPECT_TRUE(await([&] { return camera.begun > 0; }));
    camera.stopCapture();
    const auto asked = steady_clock::now();
    camera.stopStereoCompute();
    return steady_clock::now() - asked < stereo::ReadWatchdog::firstGrace;
  });
  EXPECT_TRUE(quick);
}
