// SPDX-License-Identifier: Apache-2.0
// The rectified read of both eyes, without its wait for a frame, against its two remaps alone.
#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include "StereoCamera.hpp"
#include "bench/support/Inputs.hpp"
#include "bench/support/PreparedCamera.hpp"

namespace {

// Arguments: width and height of a raw eye, width and height of a rectified one.
struct Scene {
  explicit Scene(const benchmark::State& state) {
    const cv::Size raw(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    const cv::Size size(static_cast<int>(state.range(2)), static_cast<int>(state.range(3)));
    const stereo::bench::Eye sources[2] = {stereo::bench::leftEye(), stereo::bench::rightEye()};
    const cv::Mat P = stereo::bench::viewMatrix(size, stereo::bench::perspectiveMode);
    for (int eye = 0; eye < 2; ++eye) {
      eyes[eye] = stereo::bench::picture(raw, eye);
      cv::Mat K = sources[eye].K.clone();
      K.rowRange(0, 2) *= raw.width / 928.0;  // the calibration is for the full raw size
      initRectifyMap(K, sources[eye].D, sources[eye].R, P, sources[eye].mirror(), 0, size,
                     stereo::bench::perspectiveMode, maps[eye][0], maps[eye][1]);
    }
  }

  cv::Mat eyes[2];
  cv::Mat maps[2][2];
};

void library(benchmark::State& state) {
  const Scene scene(state);
  stereo::bench::PreparedCamera camera;
  camera.setMaps(scene.maps);
  camera.setEyes(scene.eyes[0], scene.eyes[1]);
  cv::Mat left;
  cv::Mat right;
  while (state.KeepRunning()) {
    camera.getRectStereoFrame(left, right);
    benchmark::DoNotOptimize(right.data);
  }
}

void remapsAlone(benchmark::State& state) {
  const Scene scene(state);
  cv::Mat views[2];
  while (state.KeepRunning()) {
    for (int eye = 0; eye < 2; ++eye) {
      cv::remap(scene.eyes[eye], views[eye], scene.maps[eye][0], scene.maps[eye][1], cv::INTER_LINEAR,
                cv::BORDER_CONSTANT, cv::Scalar());
    }
    benchmark::DoNotOptimize(views[1].data);
  }
}

void sizes(benchmark::internal::Benchmark* bench) {
  for (const std::vector<std::int64_t>& raw : {std::vector<std::int64_t>{928, 800}, {464, 400}}) {
    bench->Args({raw[0], raw[1], 464, 400})->Args({raw[0], raw[1], 928, 800});
  }
  bench->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK(library)->Apply(sizes);
BENCHMARK(remapsAlone)->Apply(sizes);

}  // namespace
