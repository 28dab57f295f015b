// SPDX-License-Identifier: Apache-2.0
// How long a camera takes to stop when its device has gone quiet, with each back end. Each case gives the device its
// frames back when its time is over, and ends the process if not even that helps.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <optional>

#include <gtest/gtest.h>

#include "tests/campaigns/device/Guest.hpp"

using namespace stereo::test;
using std::chrono::duration;
using std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds patience(25);  // more than any time limit in the back ends
constexpr std::chrono::seconds bound(5);      // what a user may be made to wait
// The loopback module does not wake who waits in its poll when the stream is turned off, which drivers built on the
// kernel's own queues do. What is left is the ten seconds that the V4L2 back end itself gives a frame.
std::chrono::seconds loopbackBound() { return expectedBackEnd() == "V4L2" ? std::chrono::seconds(13) : bound; }

double secondsSince(steady_clock::time_point start) { return duration<double>(steady_clock::now() - start).count(); }

/// Stops the camera and says how long it took. `remedy` is called when the patience is over.
template <typename Remedy>
double timeToStop(StereoCamera& camera, const char* what, Remedy remedy) {
  const auto start = steady_clock::now();
  std::future<bool> stopped = std::async(std::launch::async, [&] { return camera.stopCapture(); });
  if (stopped.wait_for(patience) != std::future_status::ready) {
    std::printf("measured: %s, %s: stopCapture not back after %.1f s\n", expectedBackEnd().c_str(), what,
                secondsSince(start));
    std::fflush(stdout);
    remedy();
    if (stopped.wait_for(patience) != std::future_status::ready) {
      std::printf("measured: %s, %s: not even after frames came again\n", expectedBackEnd().c_str(), what);
      std::fflush(stdout);
      std::_Exit(1);
    }
  }
  EXPECT_TRUE(stopped.get());
  const double seconds = secondsSince(start);
  std::printf("measured: %s, %s: stopCapture took %.2f s\n", expectedBackEnd().c_str(), what, seconds);
  std::fflush(stdout);
  return seconds;
}

void takeFrames(StereoCamera& camera, int count) {
  cv::Mat left;
  cv::Mat right;
  std::chrono::microseconds timestamp{};
  for (int i = 0; i < count; ++i) {
    ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
  }
}

class Stop : public Device {};

}  // namespace

TEST_F(Stop, EndsSoonWhileFramesCome) {
  const Feeder feeder(halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 3);
  EXPECT_LT(timeToStop(camera, "frames come", [] {}), duration<double>(bound).count());
}

TEST_F(Stop, EndsSoonWhenTheFeederStalls) {
  const Feeder feeder(halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 3);
  feeder.pause();
  ASSERT_TRUE(camera.awaitStalledRead());
  EXPECT_LT(timeToStop(camera, "stalled", [&] { feeder.resume(); }), duration<double>(loopbackBound()).count());
}

TEST_F(Stop, EndsSoonWhenTheFeederIsGone) {
  std::optional<Feeder> feeder(std::in_place, halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 3);
  feeder->end();
  ASSERT_TRUE(camera.awaitStalledRead());
  EXPECT_LT(timeToStop(camera, "feeder gone", [&] { feeder.emplace(halfSize, 5); }),
            duration<double>(loopbackBound()).count());
}

TEST_F(Stop, EndsSoonWhenTheDeviceNeverDeliveredAnything) {
  std::optional<Feeder> feeder(std::in_place, halfSize, 5, std::vector<std::string>{"--stall", "2"});
  GuestCamera camera(loopbackDevice);
  camera.setRawFrameSize(halfSize);
  ASSERT_TRUE(camera.isOpened());
  ASSERT_TRUE(camera.startCapture(false, false));
  ASSERT_TRUE(camera.awaitStalledRead());
  // Ten reads before the first frame would wait one after the other.
  const auto feedAgain = [&] {
    feeder->end();
    feeder.emplace(halfSize, 5);
  };
  EXPECT_LT(timeToStop(camera, "stalled before the start", feedAgain), duration<double>(loopbackBound()).count());
}

TEST_F(Stop, EndsSoonWhenTheKernelsCameraStalls) {
  opensKernelDevice(3);
  if (!Plug::plugIn() && expectedBackEnd() == "GSTREAMER") {
    GTEST_SKIP() << "this process had the camera already when it was unplugged, and keeps its number";
  }
  ASSERT_TRUE(Plug::isIn());
  ASSERT_TRUE(Plug::loseFrames(false));
  for (const int framesBefore : {3, 0}) {
    SCOPED_TRACE(framesBefore);
    GuestCamera camera(kernelDevice);
    ASSERT_TRUE(camera.isOpened());
    EXPECT_EQ(camera.backEnd(), expectedBackEnd());
    ASSERT_TRUE(framesBefore > 0 || Plug::loseFrames(true));
    ASSERT_TRUE(camera.startCapture(false, false));
    takeFrames(camera, framesBefore);
    ASSERT_TRUE(Plug::loseFrames(true));
    ASSERT_TRUE(camera.awaitStalledRead());
    EXPECT_LT(timeToStop(camera, framesBefore > 0 ? "kernel's camera stalled" : "stalled before the start",
                         [] { Plug::loseFrames(false); }),
              duration<double>(bound).count());
    EXPECT_TRUE(Plug::loseFrames(false));
  }
  // No harm done: the next camera on the device has frames.
  GuestCamera camera(kernelDevice);
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 2);
}

TEST_F(Stop, EndsSoonWhenTheDeviceIsUnplugged) {
  opensKernelDevice(1);
  const Plug plug;
  if (!Plug::plugIn() && expectedBackEnd() == "GSTREAMER") {
    GTEST_SKIP() << "this process had the camera already when it was unplugged, and keeps its number";
  }
  ASSERT_TRUE(Plug::isIn());
  GuestCamera camera(kernelDevice);
  ASSERT_TRUE(camera.isOpened());
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 3);
  const int failedBefore = camera.failedReads();
  ASSERT_TRUE(Plug::pull());
  ASSERT_TRUE(camera.awaitFailedRead(failedBefore));
  EXPECT_LT(timeToStop(camera, "unplugged", [] { Plug::plugIn(); }), duration<double>(bound).count());
}
