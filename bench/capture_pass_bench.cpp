// SPDX-License-Identifier: Apache-2.0
// The pixels of one pass of the capture worker, both raw sizes, against the plain form and against the copies alone.
#include <benchmark/benchmark.h>

#include "bench/baseline/PlainCapturePass.hpp"
#include "bench/support/Inputs.hpp"
#include "src/core/CapturePass.hpp"

namespace {

cv::Mat frameOf(const benchmark::State& state) {
  return stereo::bench::picture({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))}, 1);
}

void plain(benchmark::State& state) {
  const cv::Mat frame = frameOf(state);
  stereo::baseline::CapturePass pass;
  cv::Mat first;
  cv::Mat second;
  while (state.KeepRunning()) {
    pass.run(frame, frame.cols / 4, first, second);
    benchmark::DoNotOptimize(second.data);
  }
}

void library(benchmark::State& state) {
  const cv::Mat frame = frameOf(state);
  stereo::core::CapturePass pass;
  cv::Mat first;
  cv::Mat second;
  while (state.KeepRunning()) {
    pass.process(frame, frame.cols / 4);
    pass.publish(first, second);
    benchmark::DoNotOptimize(second.data);
  }
}

void copiesAlone(benchmark::State& state) {
  const cv::Mat frame = frameOf(state);
  const int h = frame.cols / 2;
  cv::Mat halves[2];
  cv::Mat copies[2];
  while (state.KeepRunning()) {
    for (int eye = 0; eye < 2; ++eye) {
      frame(cv::Rect(eye * h, 0, h, frame.rows)).copyTo(halves[eye]);
      halves[eye].copyTo(copies[eye]);
    }
    benchmark::DoNotOptimize(copies[1].data);
  }
}

void rawSizes(benchmark::internal::Benchmark* bench) {
  bench->Args({1856, 800})->Args({928, 400})->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK(plain)->Apply(rawSizes);
BENCHMARK(library)->Apply(rawSizes);
BENCHMARK(copiesAlone)->Apply(rawSizes);

}  // namespace
