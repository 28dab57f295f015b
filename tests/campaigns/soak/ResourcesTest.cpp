// SPDX-License-Identifier: Apache-2.0
// The soak sees what is held, and tells a leak from what comes and goes.
#include <memory>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/campaigns/soak/DeliberateLeaks.hpp"
#include "tests/campaigns/soak/Failures.hpp"
#include "tests/campaigns/soak/Resources.hpp"
#include "tests/campaigns/soak/SoakReport.hpp"
#include "tests/support/OutputCapture.hpp"

using stereo::soak::Breaks;
using stereo::soak::DeliberateLeaks;
using stereo::soak::Limits;
using stereo::soak::Resources;
using stereo::soak::resourcesInUse;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::vector<std::string> judged(const std::vector<Resources>& samples, const Limits& limits) {
  std::vector<std::string> lines;
  for (const stereo::soak::Rise& each : stereo::soak::assess(samples, limits)) {
    lines.push_back(each.what + " " + each.text);
  }
  return lines;
}

// Flat, with something that comes and goes.
std::vector<Resources> steady(std::size_t count) {
  std::vector<Resources> samples;
  for (std::size_t i = 0; i < count; ++i) {
    samples.push_back({100'000 + static_cast<long>(i * 7919 % 3000), 4 + (i % 3 == 1 ? 2 : 0), 9, 0});
  }
  return samples;
}

}  // namespace

TEST(SoakResources, AreSeen) {
  std::thread([] {}).join();  // with the first of a process a sanitizer starts one of its own, which stays
  const Resources before = resourcesInUse();
  EXPECT_GT(before.residentKilobytes, 1000);
  EXPECT_GE(before.threads, 1);
  EXPECT_GE(before.descriptors, 3);
  {
    Breaks all;
    all.memory = all.descriptor = all.thread = all.segment = true;
    DeliberateLeaks waste(all);
    for (int i = 0; i < 20; ++i) {
      waste.lose();
    }
    const Resources after = resourcesInUse();
    // Some of the 80 MB may be memory that other tests gave back to the process alone.
    EXPECT_GT(after.residentKilobytes, before.residentKilobytes + 40'000);
    EXPECT_EQ(after.threads, before.threads + 20);
    EXPECT_EQ(after.descriptors, before.descriptors + 20);
    EXPECT_EQ(after.segments, before.segments + 20);
  }
  const Resources given = resourcesInUse();
  EXPECT_EQ(given.descriptors, before.descriptors);
  EXPECT_EQ(given.segments, before.segments);
}

TEST(SoakJudge, LetsPassWhatComesAndGoes) {
  EXPECT_THAT(judged({}, Limits()), IsEmpty());
  for (const std::size_t count : {1U, 3U, 4U, 7U, 20U, 700U}) {
    EXPECT_THAT(judged(steady(count), Limits()), IsEmpty()) << count;
  }
}

TEST(SoakJudge, NoticesMemoryThatRises) {
  std::vector<Resources> samples = steady(40);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i].residentKilobytes += static_cast<long>(i) * 600;
  }
  EXPECT_THAT(judged(samples, Limits()), ElementsAre(HasSubstr("resident kilobytes rose from")));
  std::vector<Resources> allocating = steady(40);
  for (std::size_t i = 0; i < allocating.size(); ++i) {
    allocating[i].heapKilobytes = 90'000 + static_cast<long>(i) * 600;
  }
  EXPECT_THAT(judged(allocating, Limits()), ElementsAre(HasSubstr("allocated kilobytes rose from")));
  Limits others;
  others.judgeMemory = false;
  EXPECT_THAT(judged(samples, others), IsEmpty());
  samples.resize(19);  // too short to tell
  EXPECT_THAT(judged(samples, Limits()), IsEmpty());
  // A peak between is no leak.
  samples = steady(40);
  samples[31].residentKilobytes += 500'000;
  EXPECT_THAT(judged(samples, Limits()), IsEmpty());
}

TEST(SoakJudge, TellsWhatItJudgesBy) {
  EXPECT_EQ(stereo::soak::describe(steady(3)), "");
  std::vector<Resources> samples = {{1, 5, 9, 0}, {2, 4, 9, 0}, {3, 7, 8, 0}, {4, 6, 8, 0}};
  EXPECT_EQ(stereo::soak::memoryRise(samples), 2);
  EXPECT_EQ(stereo::soak::describe(samples),
            "resident kilobytes 2 -> 4, allocated 0 -> 0, threads 4 -> 6, descriptors 9 -> 8");
}

TEST(SoakJudge, NoticesThreadsAndDescriptorsThatRise) {
  std::vector<Resources> samples = steady(8);
  for (std::size_t i = 4; i < samples.size(); ++i) {
    samples[i].threads += 1;  // once and for all
  }
  EXPECT_THAT(judged(samples, Limits()), ElementsAre("threads rose from 4 to 5"));
  samples = steady(4);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i].descriptors += static_cast<long>(i);
  }
  EXPECT_THAT(judged(samples, Limits()), ElementsAre("descriptors rose from 9 to 11"));
}

TEST(SoakJudge, NoticesSegmentsLeftBehind) {
  std::vector<Resources> samples = steady(2);
  samples[0].segments = 1;  // was still mapped for a moment
  EXPECT_THAT(judged(samples, Limits()), IsEmpty());
  samples[1].segments = 2;
  EXPECT_THAT(judged(samples, Limits()), ElementsAre("segments 2 left behind"));
}

TEST(SoakJudge, LeavesTheWarmUpOutButForSegments) {
  std::vector<Resources> samples = steady(8);
  for (std::size_t i = 0; i < 4; ++i) {
    samples[i].threads = 1;
  }
  EXPECT_THAT(judged(samples, Limits()), ElementsAre("threads rose from 1 to 4"));
  Limits limits;
  limits.warmUp = 4;
  EXPECT_THAT(judged(samples, limits), IsEmpty());
  samples.back().segments = 1;
  for (const std::size_t warmUp : {4U, 8U, 100U}) {
    limits.warmUp = warmUp;
    EXPECT_THAT(judged(samples, limits), ElementsAre("segments 1 left behind")) << warmUp;
  }
}

TEST(SoakJudge, TellsWhatItCannotJudge) {
  using stereo::soak::unjudged;
  Limits limits;
  limits.warmUp = 12;
  EXPECT_EQ(unjudged(32, limits), "");
  EXPECT_EQ(unjudged(31, limits), "memory (19 samples after the warm-up, not 20)");
  EXPECT_EQ(unjudged(16, limits), "memory (4 samples after the warm-up, not 20)");
  EXPECT_EQ(
      unjudged(15, limits),
      "memory (3 samples after the warm-up, not 20), threads and descriptors (3 samples after the warm-up, not 4)");
  EXPECT_THAT(unjudged(5, limits), HasSubstr("(0 samples"));
  limits.judgeMemory = false;
  EXPECT_EQ(unjudged(32, limits), "memory (under sanitizers)");
}

TEST(SoakFailures, AreCountedByKindAndToldOnlyAtFirst) {
  const stereo::test::OutputCapture said(2);
  stereo::soak::Failures failures;
  EXPECT_EQ(failures.count(), 0U);
  EXPECT_THAT(failures.lines(), IsEmpty());
  for (int i = 0; i < 30; ++i) {
    failures.add("eyes", "number " + std::to_string(i));
  }
  failures.add("pair", "other");
  EXPECT_EQ(failures.count(), 31U);
  EXPECT_THAT(failures.lines(), ElementsAre("eyes (30): number 0", "pair (1): other"));
  EXPECT_THAT(said.text(), HasSubstr("number 4"));
  EXPECT_THAT(said.text(), testing::Not(HasSubstr("number 5")));
}

TEST(SoakReport, JsonTellsVerdictAndReasons) {
  stereo::soak::Totals totals;
  totals.frames = 12;
  totals.reads[1] = 34;
  const std::string text = stereo::soak::json(totals, {{5, 6, 7, 0}}, false, {"a \"quoted\" reason\n"});
  EXPECT_THAT(text, HasSubstr("\"good\": false"));
  EXPECT_THAT(text, HasSubstr("\"reasons\": [\"a \\\"quoted\\\" reason \"]"));
  EXPECT_THAT(text, HasSubstr("\"frames\": 12,"));
  EXPECT_THAT(text, HasSubstr("\"eyes\": 34,"));
  EXPECT_THAT(text, HasSubstr("{\"residentKilobytes\": 5, \"heapKilobytes\": 0, \"threads\": 6, \"descriptors\": 7}"));
}
