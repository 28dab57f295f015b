// SPDX-License-Identifier: Apache-2.0
// Wide depth, everything included, against OpenCV's semi-global matcher, which only matches. The counter "peer" is the
// median of the matcher's time over the library's, taken in turns.
#include <algorithm>
#include <chrono>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/support/WideWork.hpp"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Arguments: width, height, threads.
void wideDepth(benchmark::State& state) {
  stereo::bench::WideWork work({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))},
                               static_cast<int>(state.range(2)));
  work.library();
  work.peer();
  std::vector<double> ratios;
  while (state.KeepRunning()) {
    const auto start = Clock::now();
    work.library();
    const double library = secondsSince(start);
    benchmark::DoNotOptimize(work.image().range.data);
    state.PauseTiming();
    const auto peerStart = Clock::now();
    work.peer();
    ratios.push_back(secondsSince(peerStart) / library);
    state.ResumeTiming();
  }
  std::nth_element(ratios.begin(), ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2), ratios.end());
  state.counters["peer"] = ratios[ratios.size() / 2];
}

BENCHMARK(wideDepth)
    ->Args({464, 400, 1})
    ->Args({464, 400, 2})
    ->Args({928, 800, 1})
    ->Args({928, 800, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
