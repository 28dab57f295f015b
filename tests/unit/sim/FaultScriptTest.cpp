// SPDX-License-Identifier: Apache-2.0
#include "sim/FaultScript.hpp"

#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace stereo::sim {
namespace {

using std::chrono::milliseconds;
using Kind = Fault::Kind;

Fault fault(Kind kind, std::uint64_t first, std::uint64_t last, milliseconds time = milliseconds(0),
            cv::Size size = {}) {
  return {kind, first, last, time, size};
}

std::string messageFor(const std::string& text) {
  try {
    parseFaults(text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "no error";
}

TEST(FaultScript, ReadsEveryFaultAndEveryFormOfFrames) {
  const FaultScript script = parseFaults(
      "# all of them\n"
      "drop 12\n"
      "\n"
      "  delay\t40- 15ms # late\r\n"
      "duplicate 0-0\n"
      "tear 3-4\n"
      "size 60-64 465x401\n"
      "grey 1\n"
      "16bit 2#close\n"
      "empty 5\n"
      "untouched 6\n"
      "black 20-29\n"
      "stall 50 3600000ms\n"
      "unplug 100 500ms\n"
      "unplug 999999999999999999 ever");
  const FaultScript expected{fault(Kind::drop, 12, 12),
                             fault(Kind::delay, 40, Fault::noEnd, milliseconds(15)),
                             fault(Kind::duplicate, 0, 0),
                             fault(Kind::tear, 3, 4),
                             fault(Kind::size, 60, 64, {}, {465, 401}),
                             fault(Kind::gray, 1, 1),
                             fault(Kind::deep, 2, 2),
                             fault(Kind::empty, 5, 5),
                             fault(Kind::untouched, 6, 6),
                             fault(Kind::black, 20, 29),
                             fault(Kind::stall, 50, 50, milliseconds(3600000)),
                             fault(Kind::unplug, 100, 100, milliseconds(500)),
                             fault(Kind::unplug, 999999999999999999, 999999999999999999, Fault::forever)};
  EXPECT_EQ(script, expected);
  EXPECT_EQ(parseFaults(printFaults(script)), script);
  EXPECT_TRUE(parseFaults("").empty());
  EXPECT_TRUE(parseFaults(" # nothing\n\n").empty());
  EXPECT_EQ(printFaults({}), "");
}

TEST(FaultScript, PrintsALineEach) {
  EXPECT_EQ(printFaults({fault(Kind::drop, 1, 1), fault(Kind::stall, 2, Fault::noEnd, milliseconds(7)),
                         fault(Kind::size, 3, 9, {}, {1, 800}), fault(Kind::unplug, 4, 4, Fault::forever)}),
            "drop 1\nstall 2- 7ms\nsize 3-9 1x800\nunplug 4 ever\n");
}

TEST(FaultScript, FallsFromTheFirstFrameToTheLast) {
  const Fault span = fault(Kind::drop, 3, 5);
  EXPECT_FALSE(span.falls(2));
  EXPECT_TRUE(span.falls(3));
  EXPECT_TRUE(span.falls(5));
  EXPECT_FALSE(span.falls(6));
  EXPECT_TRUE(fault(Kind::drop, 3, Fault::noEnd).falls(Fault::noEnd));
}

TEST(FaultScript, SaysWhatIsWrongInWhichLine) {
  const std::pair<std::string, std::string> cases[] = {
      {"smoke 1", "line 1: 'smoke' is not a fault"},
      {"drop 1\n# fine\n\nDrop 2", "line 4: 'Drop' is not a fault"},
      {"drop", "line 1: 'drop' takes frames and nothing else"},
      {"black 1 2", "line 1: 'black' takes frames and nothing else"},
      {"delay 1", "line 1: 'delay' takes frames and a time"},
      {"stall 1 5ms 6ms", "line 1: 'stall' takes frames and a time"},
      {"unplug 1", "line 1: 'unplug' takes frames and a time"},
      {"size 1", "line 1: 'size' takes frames and a size"},
      {"drop x", "line 1: 'x' names no frames: use N, N-M or N-"},
      {"drop -", "line 1: '-' names no frames: use N, N-M or N-"},
      {"drop -5", "line 1: '-5' names no frames: use N, N-M or N-"},
      {"drop +5", "line 1: '+5' names no frames: use N, N-M or N-"},
      {"drop 1-2-3", "line 1: '1-2-3' names no frames: use N, N-M or N-"},
      {"drop 1-x", "line 1: '1-x' names no frames: use N, N-M or N-"},
      {"drop 1.5", "line 1: '1.5' names no frames: use N, N-M or N-"},
      {"drop 1000000000000000000", "line 1: '1000000000000000000' names no frames: use N, N-M or N-"},
      {"drop 7-6", "line 1: the frames '7-6' end before they begin"},
      {"delay 1 5", "line 1: '5' is not a time from 1ms to 3600000ms"},
      {"delay 1 ms", "line 1: 'ms' is not a time from 1ms to 3600000ms"},
      {"delay 1 0ms", "line 1: '0ms' is not a time from 1ms to 3600000ms"},
      {"delay 1 -5ms", "line 1: '-5ms' is not a time from 1ms to 3600000ms"},
      {"stall 1 3600001ms", "line 1: '3600001ms' is not a time from 1ms to 3600000ms"},
      {"stall 1 ever", "line 1: 'ever' is not a time from 1ms to 3600000ms"},
      {"unplug 1 never", "line 1: 'never' is not a time from 1ms to 3600000ms or 'ever'"},
      {"unplug 1-2 5ms", "line 1: 'unplug' takes the one frame at which it begins"},
      {"unplug 1- ever", "line 1: 'unplug' takes the one frame at which it begins"},
      {"size 1 64", "line 1: '64' is not a size from 1x1 to 8192x8192"},
      {"size 1 x", "line 1: 'x' is not a size from 1x1 to 8192x8192"},
      {"size 1 0x5", "line 1: '0x5' is not a size from 1x1 to 8192x8192"},
      {"size 1 5x8193", "line 1: '5x8193' is not a size from 1x1 to 8192x8192"},
      {"size 1 5x5x5", "line 1: '5x5x5' is not a size from 1x1 to 8192x8192"},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_EQ(messageFor(text), message) << text;
  }
}

TEST(FaultScript, RandomOnesComeFromTheirSeedAndStayWithinTheirLimits) {
  const RandomFaults limits{
      .frames = 40, .faults = 12, .longest = milliseconds(9), .frameSize = {64, 32}, .otherTypes = true, .gone = true};
  std::set<Kind> seen;
  bool spans = false;
  bool gone = false;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    const FaultScript script = randomFaults(seed, limits);
    ASSERT_EQ(script.size(), 12U);
    EXPECT_EQ(script, randomFaults(seed, limits));
    EXPECT_NE(script, randomFaults(seed + 1, limits));
    EXPECT_EQ(parseFaults(printFaults(script)), script);
    for (const Fault& each : script) {
      seen.insert(each.kind);
      spans = spans || each.last > each.first;
      gone = gone || each.time == Fault::forever;
      EXPECT_LE(each.first, each.last);
      EXPECT_LT(each.last, limits.frames);
      EXPECT_TRUE(each.time <= limits.longest || (each.kind == Kind::unplug && each.time == Fault::forever));
      EXPECT_LE(each.size.width, 128);
      EXPECT_LE(each.size.height, 64);
    }
  }
  EXPECT_EQ(seen.size(), 12U);
  EXPECT_TRUE(spans);
  EXPECT_TRUE(gone);
}

TEST(FaultScript, RandomOnesHaveOtherTypesAndNoReturnOnlyIfAskedFor) {
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    for (const Fault& each : randomFaults(seed, {.frames = 5})) {
      EXPECT_TRUE(each.kind != Kind::gray && each.kind != Kind::deep && each.time != Fault::forever);
    }
  }
}

// The engine's numbers are the standard's, so a seed that somebody noted means the same on another machine.
TEST(FaultScript, ASeedMeansTheSameEverywhere) {
  EXPECT_EQ(printFaults(randomFaults(7, {.faults = 3})), "tear 250-253\ndelay 428 419ms\nblack 340-346\n");
}

TEST(FaultScript, RandomOptionsOutOfRangeThrow) {
  EXPECT_THROW(randomFaults(1, {.frames = 0}), std::invalid_argument);
  EXPECT_THROW(randomFaults(1, {.faults = -1}), std::invalid_argument);
  EXPECT_THROW(randomFaults(1, {.longest = milliseconds(0)}), std::invalid_argument);
  EXPECT_THROW(randomFaults(1, {.longest = milliseconds(3600001)}), std::invalid_argument);
  EXPECT_THROW(randomFaults(1, {.frameSize = {0, 5}}), std::invalid_argument);
  EXPECT_THROW(randomFaults(1, {.frameSize = {5, 4097}}), std::invalid_argument);
}

}  // namespace
}  // namespace stereo::sim
