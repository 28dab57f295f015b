// SPDX-License-Identifier: Apache-2.0
// Masks of a pair of eyes, full and half size, against the plain form and against setting the same pixels through a
// mask image.
#include <benchmark/benchmark.h>

#include "StereoCamera.hpp"
#include "bench/baseline/PlainFisheyeMask.hpp"
#include "bench/support/Inputs.hpp"

namespace {

struct Pair {
  cv::Mat first;
  cv::Mat second;

  explicit Pair(const benchmark::State& state)
      : first(stereo::bench::picture({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))}, 1)),
        second(first.clone()) {}
};

using Circle = int (*)(int radius, cv::Mat& first, cv::Mat& second);
using Ellipse = int (*)(cv::Mat& first, cv::Mat& second, float, float, float, float);

void circle(benchmark::State& state, Circle mask) {
  Pair pair(state);
  while (state.KeepRunning()) {
    mask(pair.first.cols / 2, pair.first, pair.second);
    benchmark::DoNotOptimize(pair.second.data);
  }
}

void ellipse(benchmark::State& state, Ellipse mask) {
  Pair pair(state);
  while (state.KeepRunning()) {
    mask(pair.first, pair.second, 0, 0, 0, 0);
    benchmark::DoNotOptimize(pair.second.data);
  }
}

void throughMask(benchmark::State& state, Pair& pair, const cv::Mat& mask) {
  while (state.KeepRunning()) {
    pair.first.setTo(cv::Scalar(), mask);
    pair.second.setTo(cv::Scalar(), mask);
    benchmark::DoNotOptimize(pair.second.data);
  }
}

void circleBySetTo(benchmark::State& state) {
  Pair pair(state);
  throughMask(state, pair, stereo::bench::circleMask(pair.first.size(), pair.first.cols / 2));
}

void ellipseBySetTo(benchmark::State& state) {
  Pair pair(state);
  throughMask(state, pair, stereo::bench::ellipseMask(pair.first.size()));
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Args({928, 800})->Args({464, 400})->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK_CAPTURE(circle, plain, static_cast<Circle>(stereo::baseline::convertRawFisheyeImage))->Apply(sizes);
BENCHMARK_CAPTURE(circle, library, static_cast<Circle>(convertRawFisheyeImage))->Apply(sizes);
BENCHMARK(circleBySetTo)->Apply(sizes);
BENCHMARK_CAPTURE(ellipse, plain, static_cast<Ellipse>(stereo::baseline::convertRawFisheyeImage))->Apply(sizes);
BENCHMARK_CAPTURE(ellipse, library, static_cast<Ellipse>(convertRawFisheyeImage))->Apply(sizes);
BENCHMARK(ellipseBySetTo)->Apply(sizes);

}  // namespace
