// SPDX-License-Identifier: Apache-2.0
#include "bench/support/WideWork.hpp"

#include "bench/wide/Peers.hpp"
#include "bench/wide/Sample.hpp"
#include "bench/wide/WideDepthEngine.hpp"
#include "sim/Rig.hpp"

namespace stereo::bench {

namespace {

wide::Task taskOf(const cv::Size& size) {
  wide::Task task;
  task.view.size = size;
  return task;
}

WideDepthOptions optionsOf(const wide::Task& task, int threads) {
  WideDepthOptions options = wide::optionsOf(task);
  options.threads = threads;
  return options;
}

wide::Camera camera() {
  const wide::SceneOfRig scene = wide::tuningScenes()[0];
  return wide::cameraOf(sim::Rig(scene.rig));
}

}  // namespace

WideWork::WideWork(const cv::Size& size, int threads)
    : m_depth(WideDepthCalibration::from(camera().params[0], camera().params[1]), camera().eye,
              optionsOf(taskOf(size), threads)) {
  const wide::View view = taskOf(size).view;
  // The same for every size, without the truth of this one.
  static const wide::Sample sample = wide::SampleCache("").sample(wide::tuningScenes()[0], wide::allCases()[0], {});
  m_left = sample.left;
  m_right = sample.right;
  const wide::Rectifier rectifier(camera(), view);
  m_gray[0] = rectifier.gray(m_left, false);
  m_gray[1] = rectifier.gray(m_right, true);
  m_matcher = wide::semiGlobalMatcher(view);
}

}  // namespace stereo::bench
