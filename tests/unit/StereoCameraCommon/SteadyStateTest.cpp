// SPDX-License-Identifier: Apache-2.0
// A program of its own: it counts every allocation of the process.
#include <array>
#include <atomic>

#include <gtest/gtest.h>

#include "bench/compare/AllocationCount.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/TestCamera.hpp"

using std::chrono::microseconds;
using stereo::compare::allocations;
using stereo::test::await;
using stereo::test::TestCamera;
using stereo::test::twoColors;

namespace {

constexpr int firstCounted = 30;  // warm-up reads and the passes in which buffers find their sizes lie before
constexpr int lastCounted = 80;

// Notes how much was allocated at each read of the device, from which the capture worker's pass follows.
class SteadyState : public testing::Test {
protected:
  void SetUp() override {
    if (!stereo::compare::countsAllocations()) {
      GTEST_SKIP() << "not counted in this build";
    }
    camera.install(new stereo::test::ScriptedCapture([this](int n) {
      if (n <= lastCounted) {
        atRead[static_cast<std::size_t>(n)] = allocations();
      }
      reads = n;
      return frame;
    }));
    camera.setRawFrameSize({1856, 800});
  }

  std::uint64_t allocatedBySteadyPasses() const { return atRead[lastCounted] - atRead[firstCounted]; }

  const cv::Mat frame = twoColors({1856, 800}, {10, 20, 30}, {40, 50, 60});
  std::array<std::uint64_t, lastCounted + 1> atRead{};
  std::atomic<int> reads{0};
  TestCamera camera;
};

}  // namespace

TEST_F(SteadyState, ACapturePassAllocatesNothing) {
  camera.startCapture(false, false);
  ASSERT_TRUE(await([&] { return reads > lastCounted; }));
  EXPECT_EQ(allocatedBySteadyPasses(), 0U);
  camera.stopCapture();
}

TEST_F(SteadyState, ReadingIntoKeptImagesAllocatesNothing) {
  camera.startCapture(false, false);
  cv::Mat left;
  cv::Mat right;
  cv::Mat joined;
  microseconds timestamp{0};
  const auto readBoth = [&] {
    EXPECT_TRUE(camera.getStereoFrame(left, right, timestamp));
    EXPECT_TRUE(camera.getRawFrame(joined, timestamp));
  };
  for (int n = 0; n < 5; ++n) {
    readBoth();
  }
  const std::uint64_t before = allocations();
  for (int n = 0; n < 10; ++n) {
    readBoth();
  }
  EXPECT_EQ(allocations() - before, 0U);
  camera.stopCapture();
}

// What an image costs that is not reused, so that the figures above mean something.
TEST_F(SteadyState, ReadingIntoNewImagesIsCounted) {
  camera.startCapture(false, false);
  microseconds timestamp{0};
  const std::uint64_t before = allocations();
  for (int n = 0; n < 10; ++n) {
    cv::Mat left;
    cv::Mat right;
    EXPECT_TRUE(camera.getStereoFrame(left, right, timestamp));
  }
  EXPECT_GE(allocations() - before, 20U);
  camera.stopCapture();
}
