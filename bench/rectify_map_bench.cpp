// SPDX-License-Identifier: Apache-2.0
// Map building against OpenCV's own for the same model.
#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/ccalib/omnidir.hpp>

#include "StereoCamera.hpp"

namespace {

constexpr double pi = 3.141592653589793;

struct Eye {
  cv::Mat K = (cv::Mat_<double>(3, 3) << 620, 0, 464, 0, 621, 400, 0, 0, 1);
  cv::Mat D = (cv::Mat_<double>(1, 4) << -0.1, 0.02, 0.001, -0.001);
  cv::Mat R;
  double xi = 1.5;

  Eye() { cv::Rodrigues(cv::Vec3d(0.01, -0.02, 0.005), R); }
};

cv::Mat viewMatrix(cv::Size size, int mode) {
  const double W = size.width;
  const double H = size.height;
  if (mode == 2) {
    return (cv::Mat_<double>(3, 3) << W / 2, 0, W / 2 - 0.5, 0, W / 2, H / 2 - 0.5, 0, 0, 1);
  }
  const double alpha = 180.0 / 222 * pi;
  return (cv::Mat_<double>(3, 3) << W / alpha, 0, -W * (pi - alpha) / (2 * alpha), 0, H / alpha,
          -H * (pi - alpha) / (2 * alpha), 0, 0, 1);
}

// Arguments: width, height, mode (2 perspective, 1 longitude-latitude).
void library(benchmark::State& state) {
  const cv::Size size(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  const int mode = static_cast<int>(state.range(2));
  const Eye eye;
  const cv::Mat P = viewMatrix(size, mode);
  cv::Mat columns;
  cv::Mat rows;
  for (auto _ : state) {
    initRectifyMap(eye.K, eye.D, eye.R, P, eye.xi, 0, size, mode, columns, rows);
    benchmark::DoNotOptimize(rows.data);
  }
}

void peer(benchmark::State& state) {
  const cv::Size size(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  const int mode = static_cast<int>(state.range(2));
  const Eye eye;
  const cv::Mat P = viewMatrix(size, mode);
  const cv::Mat xi(1, 1, CV_64F, cv::Scalar(eye.xi));
  cv::Mat columns;
  cv::Mat rows;
  for (auto _ : state) {
    cv::omnidir::initUndistortRectifyMap(eye.K, eye.D, xi, eye.R, P, size, CV_32FC1, columns, rows,
                                         mode == 2 ? cv::omnidir::RECTIFY_PERSPECTIVE : cv::omnidir::RECTIFY_LONGLATI);
    benchmark::DoNotOptimize(rows.data);
  }
}

void sizes(benchmark::internal::Benchmark* bench) {
  for (const int mode : {2, 1}) {
    bench->Args({464, 400, mode})->Args({928, 800, mode});
  }
  bench->Unit(benchmark::kMillisecond);
}

BENCHMARK(library)->Apply(sizes);
BENCHMARK(peer)->Apply(sizes);

}  // namespace
