// SPDX-License-Identifier: Apache-2.0
// How long a camera takes to stop when its device has gone quiet, with each back end. A back end's read may wait
// without end for the next frame, so each case gives the device its frames back when its time is over, and ends the
// process if not even that helps.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <optional>

#include <gtest/gtest.h>

#include "device/Guest.hpp"

using namespace stereo::test;
using std::chrono::duration;
using std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds patience(25);  // more than any time limit in the back ends
constexpr std::chrono::seconds bound(5);      // what a user may be made to wait

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
  std::chrono::microseconds stamp{};
  for (int i = 0; i < count; ++i) {
    ASSERT_TRUE(camera.getStereoFrame(left, right, stamp));
  }
}

}  // namespace

TEST(Stop, EndsSoonWhileFramesCome) {
  const Feeder feeder(halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 3);
  EXPECT_LT(timeToStop(camera, "frames come", [] {}), duration<double>(bound).count());
}

TEST(Stop, DISABLED_EndsSoonWhenTheFeederStalls) {
  const Feeder feeder(halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 3);
  feeder.pause();
  ASSERT_TRUE(camera.awaitStalledRead());
  EXPECT_LT(timeToStop(camera, "stalled", [&] { feeder.resume(); }), duration<double>(bound).count());
}

TEST(Stop, DISABLED_EndsSoonWhenTheFeederIsGone) {
  std::optional<Feeder> feeder(std::in_place, halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 3);
  feeder->end();
  ASSERT_TRUE(camera.awaitStalledRead());
  EXPECT_LT(timeToStop(camera, "feeder gone", [&] { feeder.emplace(halfSize, 5); }), duration<double>(bound).count());
}

TEST(Stop, DISABLED_EndsSoonWhenTheDeviceNeverDeliveredAnything) {
  std::optional<Feeder> feeder(std::in_place, halfSize, 5, std::vector<std::string>{"--stall", "2"});
  GuestCamera camera(loopbackDevice);
  camera.setRawFrameSize(halfSize);
  ASSERT_TRUE(camera.isOpened());
  ASSERT_TRUE(camera.startCapture(false, false));
  ASSERT_TRUE(camera.awaitStalledRead());
  // The ten reads before the first frame wait one after the other.
  const auto feedAgain = [&] {
    feeder->end();
    feeder.emplace(halfSize, 5);
  };
  EXPECT_LT(timeToStop(camera, "stalled before the start", feedAgain), duration<double>(bound).count());
}

TEST(Stop, EndsSoonWhenTheDeviceIsUnplugged) {
  const Plug plug;
  ASSERT_TRUE(Plug::isIn());
  GuestCamera camera(kernelDevice);
  ASSERT_TRUE(camera.isOpened());
  ASSERT_TRUE(camera.startCapture(false, false));
  takeFrames(camera, 3);
  ASSERT_TRUE(Plug::pull());
  ASSERT_TRUE(camera.awaitFailedRead());
  EXPECT_LT(timeToStop(camera, "unplugged", [] { Plug::plugIn(); }), duration<double>(bound).count());
}
