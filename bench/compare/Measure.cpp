// SPDX-License-Identifier: Apache-2.0
// Times the calls of a unit in turns.
#include "bench/compare/Measure.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <utility>
#include <vector>

#include "bench/compare/AllocationCount.hpp"

namespace stereo::compare {

namespace {

using Clock = std::chrono::steady_clock;

double processorMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

struct Runner {
  const std::function<void()>* call;
  Times* times;
  std::vector<double> wall;
  double cpu = 0;
  std::uint64_t allocated = 0;

  void once() {
    // Recording may allocate, so it is outside the count.
    const std::uint64_t allocatedBefore = allocations();
    const double cpuBefore = processorMilliseconds();
    const auto start = Clock::now();
    (*call)();
    const auto end = Clock::now();
    cpu += processorMilliseconds() - cpuBefore;
    allocated += allocations() - allocatedBefore;
    wall.push_back(std::chrono::duration<double, std::milli>(end - start).count());
  }

  void finish() {
    std::sort(wall.begin(), wall.end());
    const std::size_t n = wall.size();
    times->calls = n;
    times->median = n % 2 == 1 ? wall[n / 2] : (wall[n / 2 - 1] + wall[n / 2]) / 2;
    times->p90 = wall[std::min(n - 1, n * 9 / 10)];
    times->cpu = cpu / static_cast<double>(n);
    times->allocations = static_cast<double>(allocated) / static_cast<double>(n);
  }
};

double ratio(const Times& a, const Times& b) {
  return a.calls > 0 && b.calls > 0 && b.median > 0 ? a.median / b.median : 0;
}

}  // namespace

double Result::scalarOverLibrary() const { return ratio(scalar, library); }
double Result::peerOverLibrary() const { return ratio(peer, library); }
double Result::libraryOverFloor() const { return ratio(library, floor); }

bool Result::reached() const {
  return (targets.scalar == 0 || scalarOverLibrary() >= targets.scalar) &&
         (targets.peer == 0 || peerOverLibrary() >= targets.peer) &&
         (targets.floor == 0 || (floor.calls > 0 && libraryOverFloor() <= targets.floor));
}

Result measure(const Unit& unit, double seconds, std::size_t minRounds) {
  Result result;
  result.name = unit.name;
  result.peerName = unit.peerName;
  result.floorName = unit.floorName;
  result.targets = unit.targets;
  result.difference = unit.difference();

  std::vector<Runner> runners;
  for (const auto& [call, times] : {std::pair{&unit.scalar, &result.scalar}, std::pair{&unit.library, &result.library},
                                    std::pair{&unit.peer, &result.peer}, std::pair{&unit.floor, &result.floor}}) {
    if (*call) {
      runners.push_back({call, times, {}});
    }
  }
  // Warm up: create buffers, start threads, touch pages.
  const auto warmUp = Clock::now();
  do {
    for (const Runner& runner : runners) {
      (*runner.call)();
    }
  } while (secondsSince(warmUp) < 0.1 * seconds);

  const auto start = Clock::now();
  for (std::size_t round = 0; round < minRounds || secondsSince(start) < seconds; ++round) {
    for (Runner& runner : runners) {
      runner.once();
    }
  }
  for (Runner& runner : runners) {
    runner.finish();
  }
  return result;
}

}  // namespace stereo::compare
