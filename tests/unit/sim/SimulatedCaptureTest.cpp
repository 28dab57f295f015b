// SPDX-License-Identifier: Apache-2.0
#include "sources/FrameSource.hpp"

#include <chrono>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "sim/SimulatedCapture.hpp"
#include "tests/support/Images.hpp"

namespace stereo::sim {
namespace {

using stereo::test::fullSize;
using stereo::test::halfSize;
using stereo::test::sameBits;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::unique_ptr<SimulatedCapture> makeCapture(bool moving, const SimulatedCapture::Options& options) {
  const auto scene = std::make_shared<const Scene>(Scene::Options{.seed = 1, .moving = moving, .period = 2.0});
  return std::make_unique<SimulatedCapture>(scene, Rig(1), options);
}

TEST(SimulatedCapture, DeliversTheSceneFrameByFrameAndStartsOver) {
  const auto scene = std::make_shared<const Scene>(Scene::Options{.seed = 1, .moving = true, .period = 2.0});
  const Renderer renderer(scene, Rig(1), halfSize);
  for (const bool ring : {true, false}) {
    SimulatedCapture capture(scene, Rig(1), {.frameSize = halfSize, .rate = 0, .framesPerPeriod = 3, .ring = ring});
    EXPECT_DOUBLE_EQ(capture.sceneTime(1), 2.0 / 3.0);
    EXPECT_DOUBLE_EQ(capture.sceneTime(4), 2.0 / 3.0);
    for (int n = 0; n < 5; ++n) {
      cv::Mat frame;
      ASSERT_TRUE(capture.read(frame));
      EXPECT_TRUE(sameBits(frame, renderer.render(2.0 * (n % 3) / 3.0))) << "frame " << n << " ring " << ring;
    }
    EXPECT_EQ(capture.framesDelivered(), 5U);
    EXPECT_EQ(capture.get(cv::CAP_PROP_POS_FRAMES), 5.0);
  }
}

TEST(SimulatedCapture, DeliveredPixelsAreTheReadersOwn) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 0});
  cv::Mat first;
  ASSERT_TRUE(capture->read(first));
  ASSERT_FALSE(first.empty());
  const cv::Mat kept = first.clone();
  first.setTo(cv::Scalar::all(255));
  cv::Mat second;
  ASSERT_TRUE(capture->read(second));
  EXPECT_TRUE(sameBits(second, kept));
}

TEST(SimulatedCapture, SizeChangesOnceWidthAndHeightAgree) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 0});
  cv::Mat frame;
  ASSERT_TRUE(capture->read(frame));
  EXPECT_EQ(frame.size(), halfSize);
  EXPECT_TRUE(capture->set(cv::CAP_PROP_FRAME_WIDTH, 1856));
  ASSERT_TRUE(capture->read(frame));
  EXPECT_EQ(frame.size(), halfSize) << "1856 x 400 is no format";
  EXPECT_TRUE(capture->set(cv::CAP_PROP_FRAME_HEIGHT, 800));
  EXPECT_EQ(capture->get(cv::CAP_PROP_FRAME_WIDTH), 1856.0);
  EXPECT_EQ(capture->get(cv::CAP_PROP_FRAME_HEIGHT), 800.0);
  ASSERT_TRUE(capture->read(frame));
  EXPECT_EQ(frame.size(), fullSize);
  EXPECT_FALSE(capture->set(cv::CAP_PROP_FRAME_WIDTH, 1280));
  EXPECT_FALSE(capture->set(cv::CAP_PROP_FRAME_HEIGHT, 720));
  EXPECT_EQ(capture->get(cv::CAP_PROP_FRAME_WIDTH), 1856.0);
}

TEST(SimulatedCapture, RefusesWhatItDoesNotKnow) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 25});
  EXPECT_FALSE(capture->set(cv::CAP_PROP_BRIGHTNESS, 1));
  EXPECT_EQ(capture->get(cv::CAP_PROP_BRIGHTNESS), 0.0);
  EXPECT_EQ(capture->get(cv::CAP_PROP_FPS), 25.0);
  EXPECT_FALSE(capture->set(cv::CAP_PROP_FPS, -1));
  EXPECT_FALSE(capture->set(cv::CAP_PROP_FPS, std::nan("")));
  EXPECT_EQ(capture->get(cv::CAP_PROP_FPS), 25.0);
  EXPECT_TRUE(capture->set(cv::CAP_PROP_FPS, 60));
  EXPECT_EQ(capture->get(cv::CAP_PROP_FPS), 60.0);
}

TEST(SimulatedCapture, OptionsOutOfRangeThrow) {
  EXPECT_THROW(makeCapture(true, {.frameSize = {640, 480}}), std::invalid_argument);
  EXPECT_THROW(makeCapture(true, {.frameSize = halfSize, .rate = -1}), std::invalid_argument);
  EXPECT_THROW(makeCapture(true, {.frameSize = halfSize, .framesPerPeriod = 0}), std::invalid_argument);
}

TEST(SimulatedCapture, KeepsToItsRate) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 50});
  cv::Mat frame;
  ASSERT_TRUE(capture->read(frame));  // rendered now
  const auto start = Clock::now();
  for (int i = 0; i < 12; ++i) {
    ASSERT_TRUE(capture->read(frame));
  }
  // The first of the twelve may have been due for up to a period; the others follow a period after each other.
  EXPECT_GE(secondsSince(start), 10 * 0.02 - 0.001);
  EXPECT_LT(secondsSince(start), 2.0);
}

TEST(SimulatedCapture, CountsThePeriodsThatNobodyCameFor) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 100});
  capture->fillRing();
  cv::Mat frame;
  const auto waitFrom = [](Clock::time_point start, double seconds) {
    while (secondsSince(start) < seconds) {
      std::this_thread::yield();
    }
  };
  // Nobody has read yet: frames due until now are not lost.
  waitFrom(Clock::now(), 0.05);
  ASSERT_TRUE(capture->read(frame));
  EXPECT_EQ(capture->framesMissed(), 0U);
  // The next frame is due a period after this one, which was delivered between `before` and `after`.
  ASSERT_TRUE(capture->set(cv::CAP_PROP_FPS, 100));
  const auto before = Clock::now();
  ASSERT_TRUE(capture->read(frame));
  const std::uint64_t atStart = capture->framesMissed();
  waitFrom(Clock::now(), 0.1);
  ASSERT_TRUE(capture->read(frame));
  const double most = secondsSince(before) * 100;
  const std::uint64_t missed = capture->framesMissed() - atStart;
  EXPECT_GE(missed, 8U);
  EXPECT_LE(static_cast<double>(missed), most);
  EXPECT_EQ(capture->framesDelivered(), 3U) << "what was missed is not delivered";
}

TEST(SimulatedCapture, MissesNothingWithoutARateOrAtANewOne) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 0});
  cv::Mat frame;
  for (const double rate : {0.0, 1000.0, 0.0, 1000.0}) {
    ASSERT_TRUE(capture->set(cv::CAP_PROP_FPS, rate));
    const auto start = Clock::now();
    while (secondsSince(start) < 0.01) {
      std::this_thread::yield();
    }
    ASSERT_TRUE(capture->read(frame));
  }
  EXPECT_EQ(capture->framesMissed(), 0U);
}

TEST(SimulatedCapture, NewRateHoldsFromTheNextFrameOn) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 0.2});
  cv::Mat frame;
  ASSERT_TRUE(capture->read(frame));
  ASSERT_TRUE(capture->set(cv::CAP_PROP_FPS, 200));
  const auto start = Clock::now();
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(capture->read(frame));
  }
  EXPECT_LT(secondsSince(start), 4.0) << "still at five seconds a frame";
}

TEST(SimulatedCapture, RingDeliversFarAboveTheRenderingRate) {
  const auto capture = makeCapture(true, {.frameSize = fullSize, .rate = 0, .framesPerPeriod = 2});
  const auto begin = Clock::now();
  capture->fillRing();
  const double rendering = secondsSince(begin) / 2;
  cv::Mat frame;
  const auto start = Clock::now();
  for (int i = 0; i < 60; ++i) {
    ASSERT_TRUE(capture->read(frame));
  }
  EXPECT_LT(secondsSince(start) / 60, rendering / 5);
}

TEST(SimulatedCapture, GrabThenRetrieveGivesTheGrabbedFrame) {
  const auto capture = makeCapture(true, {.frameSize = halfSize, .rate = 0, .framesPerPeriod = 2});
  cv::Mat frame;
  EXPECT_FALSE(capture->retrieve(frame)) << "nothing grabbed yet";
  ASSERT_TRUE(capture->grab());
  ASSERT_TRUE(capture->retrieve(frame));
  cv::Mat again;
  ASSERT_TRUE(capture->retrieve(again));
  ASSERT_FALSE(frame.empty());
  EXPECT_TRUE(sameBits(frame, again));
  ASSERT_TRUE(capture->grab());
  ASSERT_TRUE(capture->retrieve(again));
  EXPECT_FALSE(sameBits(frame, again));
  EXPECT_EQ(capture->framesDelivered(), 2U);
}

TEST(SimulatedCapture, ReleasedSourceDeliversNothingAndDoesNotSpin) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 0});
  EXPECT_TRUE(capture->isOpened());
  cv::Mat frame;
  ASSERT_TRUE(capture->read(frame));
  capture->release();
  EXPECT_FALSE(capture->isOpened());
  const auto start = Clock::now();
  for (int i = 0; i < 10; ++i) {
    EXPECT_FALSE(capture->read(frame));
    EXPECT_TRUE(frame.empty());
  }
  EXPECT_GE(secondsSince(start), 0.09);
  EXPECT_LT(secondsSince(start), 5.0);
  EXPECT_FALSE(capture->grab());
  EXPECT_EQ(capture->framesDelivered(), 1U);
}

TEST(SimulatedCapture, ReleaseEndsARead) {
  const auto capture = makeCapture(false, {.frameSize = halfSize, .rate = 0.001});
  cv::Mat frame;
  ASSERT_TRUE(capture->read(frame));
  const auto start = Clock::now();
  bool delivered = true;
  std::thread reader([&] {
    cv::Mat next;
    // The frame after this one is due in a quarter of an hour.
    delivered = capture->read(next);
  });
  capture->release();
  reader.join();
  EXPECT_FALSE(delivered);
  EXPECT_LT(secondsSince(start), 10.0);
}

TEST(SimulatedCapture, ReadersAndSettersMayShareIt) {
  const auto capture = makeCapture(true, {.frameSize = halfSize, .rate = 0, .framesPerPeriod = 2});
  capture->fillRing();
  std::vector<int> good(3, 0);
  std::vector<std::thread> readers;
  for (int& count : good) {
    readers.emplace_back([&capture, &count] {
      for (int i = 0; i < 20; ++i) {
        cv::Mat frame;
        count += capture->read(frame) && (frame.size() == halfSize || frame.size() == fullSize) ? 1 : 0;
      }
    });
  }
  for (const int rate : {500, 1000, 0}) {
    EXPECT_TRUE(capture->set(cv::CAP_PROP_FPS, rate));
  }
  EXPECT_GT(capture->get(cv::CAP_PROP_FRAME_WIDTH), 0.0);
  for (std::thread& reader : readers) {
    reader.join();
  }
  EXPECT_EQ(good, std::vector<int>(3, 20));
  EXPECT_EQ(capture->framesDelivered(), 60U);
}

}  // namespace
}  // namespace stereo::sim
