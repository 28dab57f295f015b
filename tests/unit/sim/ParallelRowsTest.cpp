// SPDX-License-Identifier: Apache-2.0
#include "sim/ParallelRows.hpp"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Threads.hpp"

namespace stereo::sim {
namespace {

TEST(ForEachRow, VisitsEveryRowOnce) {
  for (const int threads : {1, 2, 5}) {
    const stereo::test::Threads limit(threads);
    for (const int rows : {0, 1, 7, 8, 9, 100}) {
      std::vector<std::atomic<int>> visits(static_cast<std::size_t>(rows));
      forEachRow(rows, [&visits](int row) { ++visits[static_cast<std::size_t>(row)]; });
      for (const auto& count : visits) {
        ASSERT_EQ(count, 1) << threads << " threads, " << rows << " rows";
      }
    }
  }
}

TEST(ForEachRow, RunsOnSeveralThreadsAtOnce) {
  const stereo::test::Threads limit(2);
  std::mutex mutex;
  std::condition_variable bothHere;
  int inside = 0;
  bool met = true;
  // The first row of either thread's share waits for the other's.
  forEachRow(16, [&](int row) {
    if (row % 8 == 0) {
      std::unique_lock lock(mutex);
      ++inside;
      bothHere.notify_all();
      met = bothHere.wait_for(lock, std::chrono::seconds(20), [&inside] { return inside == 2; }) && met;
    }
  });
  EXPECT_TRUE(met);
}

TEST(ForEachRow, PassesOnWhatTheWorkThrows) {
  for (const int threads : {1, 3}) {
    const stereo::test::Threads limit(threads);
    EXPECT_THROW(forEachRow(64,
                            [](int row) {
                              if (row == 40) {
                                throw std::runtime_error("row 40");
                              }
                            }),
                 std::runtime_error);
  }
}

}  // namespace
}  // namespace stereo::sim
