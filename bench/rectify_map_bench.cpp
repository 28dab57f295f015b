// SPDX-License-Identifier: Apache-2.0
// Building lookup maps, against the plain form and OpenCV's maps for the same model.
#include <benchmark/benchmark.h>
#include <opencv2/ccalib/omnidir.hpp>

#include "StereoCamera.hpp"
#include "bench/baseline/PlainRectifyMap.hpp"
#include "bench/support/Inputs.hpp"

namespace {

using stereo::bench::Eye;
using stereo::bench::leftEye;
using stereo::bench::lonLatMode;
using stereo::bench::perspectiveMode;
using stereo::bench::rightEye;
using stereo::bench::viewMatrix;

using Build = void (*)(const Eye& eye, const cv::Mat& P, cv::Size size, int mode, cv::Mat& columns, cv::Mat& rows);

void plain(const Eye& eye, const cv::Mat& P, cv::Size size, int mode, cv::Mat& columns, cv::Mat& rows) {
  stereo::baseline::initRectifyMap(eye.K, eye.D, eye.R, P, eye.mirror(), 0, size, mode, columns, rows);
}

void library(const Eye& eye, const cv::Mat& P, cv::Size size, int mode, cv::Mat& columns, cv::Mat& rows) {
  initRectifyMap(eye.K, eye.D, eye.R, P, eye.mirror(), 0, size, mode, columns, rows);
}

void peer(const Eye& eye, const cv::Mat& P, cv::Size size, int mode, cv::Mat& columns, cv::Mat& rows) {
  cv::omnidir::initUndistortRectifyMap(
      eye.K, eye.D, eye.xi, eye.R, P, size, CV_32FC1, columns, rows,
      mode == perspectiveMode ? cv::omnidir::RECTIFY_PERSPECTIVE : cv::omnidir::RECTIFY_LONGLATI);
}

cv::Size sizeOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

// Arguments: width, height, mode (2 perspective, 1 longitude-latitude).
void onePair(benchmark::State& state, Build build) {
  const cv::Size size = sizeOf(state);
  const int mode = static_cast<int>(state.range(2));
  const Eye eye = leftEye();
  const cv::Mat P = viewMatrix(size, mode);
  cv::Mat columns;
  cv::Mat rows;
  while (state.KeepRunning()) {
    build(eye, P, size, mode, columns, rows);
    benchmark::DoNotOptimize(rows.data);
  }
}

// Both views of both eyes in new matrices, as `startCapture` builds them.
void fourPairs(benchmark::State& state, Build build) {
  const cv::Size size = sizeOf(state);
  const Eye eyes[2] = {leftEye(), rightEye()};
  while (state.KeepRunning()) {
    for (const int mode : {perspectiveMode, lonLatMode}) {
      const cv::Mat P = viewMatrix(size, mode);
      for (const Eye& eye : eyes) {
        cv::Mat columns;
        cv::Mat rows;
        build(eye, P, size, mode, columns, rows);
        benchmark::DoNotOptimize(rows.data);
      }
    }
  }
}

void views(benchmark::internal::Benchmark* bench) {
  for (const int mode : {perspectiveMode, lonLatMode}) {
    bench->Args({464, 400, mode})->Args({928, 800, mode});
  }
  bench->Unit(benchmark::kMillisecond)->UseRealTime();
}

void starts(benchmark::internal::Benchmark* bench) {
  bench->Args({464, 400})->Args({928, 800})->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK_CAPTURE(onePair, plain, plain)->Apply(views);
BENCHMARK_CAPTURE(onePair, library, library)->Apply(views);
BENCHMARK_CAPTURE(onePair, peer, peer)->Apply(views);
BENCHMARK_CAPTURE(fourPairs, plain, plain)->Apply(starts);
BENCHMARK_CAPTURE(fourPairs, library, library)->Apply(starts);
BENCHMARK_CAPTURE(fourPairs, peer, peer)->Apply(starts);

}  // namespace
