// SPDX-License-Identifier: Apache-2.0
// Eyes of the simulated camera, with what is true of them.
#pragma once

#include <memory>

#include "WideDepth.hpp"
#include "sim/Degradation.hpp"
#include "sim/Rig.hpp"
#include "sim/Scene.hpp"

namespace stereo::test {

/// One eye of a frame of half size.
inline const cv::Size eyeSize(464, 400);

/// Renders one scene through one rig at half size.
class SimulatedEyes {
public:
  explicit SimulatedEyes(const sim::Scene::Options& scene = {.seed = 1, .moving = false}, std::uint32_t rigSeed = 1);

  struct Pair {
    cv::Mat left;
    cv::Mat right;
  };

  /// Both eyes at `time`, seconds; `index` draws other noise.
  Pair at(double time, std::uint64_t index = 0, const sim::Degradation& picture = {.noise = 2.0}) const;
  /// CV_32FC1: meters along these rays at `time`.
  cv::Mat truth(const cv::Mat& rays, double time) const;
  /// CV_8UC1: 255 where both eyes see it.
  cv::Mat seen(const cv::Mat& rays, double time) const;

  WideDepthCalibration calibration() const;
  const sim::Rig& rig() const { return m_rig; }

private:
  std::shared_ptr<const sim::Scene> m_scene;
  sim::Rig m_rig;
};

/// A view that takes little time: 232 x 200 pixels over 160 x 140 degrees, from 0.2 m on, one thread.
WideDepthOptions smallView();

/// Shares in percent of the pixels that both eyes see, and the median error in percent.
struct Accuracy {
  double valid = 0;
  double wrong = 0;  ///< more than 10 % off, of the valid ones
  double median = 0;
};

Accuracy accuracyOf(const WideDepthImage& image, const cv::Mat& truth, const cv::Mat& seen, double nearest,
                    double farthest);

}  // namespace stereo::test
