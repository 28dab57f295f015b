// SPDX-License-Identifier: Apache-2.0
// Clouds sampled from a view, its disparity and its depth, against the plain form. Measures what the reads of the class
// do after their wait for a disparity.
#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>

#include "StereoCamera.hpp"
#include "bench/baseline/PlainCloud.hpp"
#include "bench/support/Inputs.hpp"
#include "src/core/AppendCloud.hpp"

namespace {

using stereo::bench::lonLatMode;
using stereo::bench::perspectiveMode;

cv::Size sizeOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

template <typename Point>
using Sample = void (*)(const stereo::core::CloudImages&, const stereo::core::CloudModel&, std::vector<Point>&);

// Arguments: width, height, depth mode.
template <typename Point>
void sample(benchmark::State& state, Sample<Point> append) {
  const int mode = static_cast<int>(state.range(2));
  const auto images = stereo::bench::cloudImages(sizeOf(state), mode);
  const auto model = stereo::bench::cloudModel(sizeOf(state), mode);
  std::vector<Point> points;
  while (state.KeepRunning()) {
    points.clear();
    append(images, model, points);
    benchmark::DoNotOptimize(points.data());
  }
  state.counters["points"] = static_cast<double>(points.size());
}

void plain(benchmark::State& state, Sample<cv::Vec3f> append) { sample<cv::Vec3f>(state, append); }

void colored(benchmark::State& state, Sample<PCL> append) { sample<PCL>(state, append); }

void wholeImageByPeer(benchmark::State& state) {
  const cv::Mat disparity = stereo::bench::matchedDisparity(sizeOf(state), 2);
  const cv::Mat Q = stereo::bench::reprojection(sizeOf(state));
  cv::Mat points;
  while (state.KeepRunning()) {
    cv::reprojectImageTo3D(disparity, points, Q);
    benchmark::DoNotOptimize(points.data);
  }
}

void views(benchmark::internal::Benchmark* bench) {
  for (const int mode : {lonLatMode, perspectiveMode}) {
    bench->Args({464, 400, mode})->Args({928, 800, mode});
  }
  // Square, so that no lookup of the perspective cloud leaves the image.
  bench->Args({464, 464, perspectiveMode})->Unit(benchmark::kMicrosecond)->UseRealTime();
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Args({464, 400})->Args({928, 800})->Args({464, 464})->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK_CAPTURE(plain, scalar, stereo::baseline::plainCloud)->Apply(views);
BENCHMARK_CAPTURE(plain, library, stereo::core::appendPlainCloud)->Apply(views);
BENCHMARK_CAPTURE(colored, scalar, stereo::baseline::coloredCloud)->Apply(views);
BENCHMARK_CAPTURE(colored, library, stereo::core::appendColoredCloud<PCL>)->Apply(views);
BENCHMARK(wholeImageByPeer)->Apply(sizes);

}  // namespace
