// SPDX-License-Identifier: Apache-2.0
// Metric and colored depth of a disparity image, against their plain forms and OpenCV's reprojection.
#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>

#include "bench/baseline/PlainDepth.hpp"
#include "bench/support/Inputs.hpp"
#include "src/core/Depth.hpp"

namespace {

using stereo::bench::depthModel;
using stereo::bench::lonLatMode;
using stereo::bench::matchedDisparity;
using stereo::bench::perspectiveMode;

cv::Size sizeOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

int modeOf(const benchmark::State& state) { return static_cast<int>(state.range(2)); }

void metricPlain(benchmark::State& state) {
  const cv::Mat disparity = matchedDisparity(sizeOf(state), 1);
  const auto model = depthModel(sizeOf(state), modeOf(state));
  cv::Mat depth;
  while (state.KeepRunning()) {
    stereo::baseline::metricDepth(disparity, model, depth);
    benchmark::DoNotOptimize(depth.data);
  }
}

void metricLibrary(benchmark::State& state) {
  const cv::Mat disparity = matchedDisparity(sizeOf(state), 1);
  const auto model = depthModel(sizeOf(state), modeOf(state));
  cv::Mat depth;
  while (state.KeepRunning()) {
    stereo::core::writeMetricDepth(disparity, model, depth);
    benchmark::DoNotOptimize(depth.data);
  }
}

void metricPeer(benchmark::State& state) {
  const cv::Mat disparity = matchedDisparity(sizeOf(state), 1);
  const cv::Mat Q = stereo::bench::reprojection(sizeOf(state));
  cv::Mat points;
  while (state.KeepRunning()) {
    cv::reprojectImageTo3D(disparity, points, Q);
    benchmark::DoNotOptimize(points.data);
  }
}

void coloredPlain(benchmark::State& state) {
  const cv::Mat disparity = matchedDisparity(sizeOf(state), 1);
  const auto model = depthModel(sizeOf(state), modeOf(state));
  cv::Mat picture;
  while (state.KeepRunning()) {
    stereo::baseline::coloredDepth(disparity, model, picture);
    benchmark::DoNotOptimize(picture.data);
  }
}

void coloredLibrary(benchmark::State& state) {
  const cv::Mat disparity = matchedDisparity(sizeOf(state), 1);
  const auto model = depthModel(sizeOf(state), modeOf(state));
  cv::Mat depths;
  cv::Mat picture;
  while (state.KeepRunning()) {
    stereo::core::writeDepthPicture(disparity, model, depths, picture);
    benchmark::DoNotOptimize(picture.data);
  }
}

// Arguments: width, height, depth mode.
void perspective(benchmark::internal::Benchmark* bench) {
  bench->Args({464, 400, perspectiveMode})->Args({928, 800, perspectiveMode});
  bench->Unit(benchmark::kMicrosecond)->UseRealTime();
}

void bothModes(benchmark::internal::Benchmark* bench) {
  perspective(bench);
  bench->Args({464, 400, lonLatMode})->Args({928, 800, lonLatMode});
}

BENCHMARK(metricPlain)->Apply(bothModes);
BENCHMARK(metricLibrary)->Apply(bothModes);
BENCHMARK(metricPeer)->Apply(perspective);
BENCHMARK(coloredPlain)->Apply(bothModes);
BENCHMARK(coloredLibrary)->Apply(bothModes);

}  // namespace
