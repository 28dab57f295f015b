// SPDX-License-Identifier: Apache-2.0
// Masking of an eye pair, full and half size, against setting the same pixels through a mask image.
#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include "StereoCamera.hpp"

namespace {

struct Pair {
  cv::Mat first;
  cv::Mat second;

  explicit Pair(benchmark::State& state)
      : first(static_cast<int>(state.range(1)), static_cast<int>(state.range(0)), CV_8UC3, cv::Scalar::all(100)),
        second(first.clone()) {}
};

void circle(benchmark::State& state) {
  Pair pair(state);
  for (auto _ : state) {
    convertRawFisheyeImage(pair.first.cols / 2, pair.first, pair.second);
    benchmark::DoNotOptimize(pair.second.data);
  }
}

void ellipse(benchmark::State& state) {
  Pair pair(state);
  for (auto _ : state) {
    convertRawFisheyeImage(pair.first, pair.second, 0, 0, 0, 0);
    benchmark::DoNotOptimize(pair.second.data);
  }
}

void peerSetTo(benchmark::State& state) {
  Pair pair(state);
  cv::Mat mask(pair.first.size(), CV_8UC1, cv::Scalar(255));
  cv::circle(mask, {mask.cols / 2, mask.rows / 2}, mask.cols / 2, cv::Scalar(0), cv::FILLED);
  for (auto _ : state) {
    pair.first.setTo(cv::Scalar(), mask);
    pair.second.setTo(cv::Scalar(), mask);
    benchmark::DoNotOptimize(pair.second.data);
  }
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Args({928, 800})->Args({464, 400})->Unit(benchmark::kMicrosecond);
}

BENCHMARK(circle)->Apply(sizes);
BENCHMARK(ellipse)->Apply(sizes);
BENCHMARK(peerSetTo)->Apply(sizes);

}  // namespace
