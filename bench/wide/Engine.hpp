// SPDX-License-Identifier: Apache-2.0
// What the judge measures: engines that find ranges in a pair of eyes.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "bench/wide/View.hpp"
#include "model/OmniModel.hpp"
#include "sim/Rig.hpp"

namespace stereo::wide {

/// What an engine finds. All images have the size of the view.
struct Measured {
  cv::Mat range;       ///< CV_32FC1: meters along the ray, 0 where nothing was measured
  cv::Mat state;       ///< CV_8UC1: why, numbered as `RangeState`; empty if the engine has no states
  cv::Mat confidence;  ///< CV_8UC1: 255 is best; empty if the engine has none
};

/// One engine, prepared for one camera.
class Engine {
public:
  Engine() = default;
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
  virtual ~Engine() = default;

  virtual Measured measure(const cv::Mat& left, const cv::Mat& right) = 0;
};

/// What an engine is told of its camera.
struct Camera {
  std::vector<cv::Mat> params[2];  ///< calibration of the left and the right eye, as `sim::Rig::calibParams`
  cv::Size eye;                    ///< pixels
};

/// What a rig says of itself, for full-size frames.
Camera cameraOf(const sim::Rig& rig);

/// What an engine is asked for.
struct Task {
  View view;
  double nearest = 0.1;  ///< meters
  double farthest = 10.0;
  bool selfCalibrate = true;
};

struct EngineKind {
  std::string name;
  std::function<std::unique_ptr<Engine>(const Camera&, const Task&)> make;
};

/// OpenCV's block matching (block 15) and semi-global matching (block 7), 96 disparities in a view 464 pixels wide, on
/// pairs rectified by cv::remap. They share one geometry with the engine that is judged: the view of the task.
std::vector<EngineKind> peerEngines();

/// stereo::WideDepth.
EngineKind wideDepthEngine();

/// The model of an eye from its calibration, for eyes `eyeWidth` pixels wide.
model::OmniModel modelOf(const std::vector<cv::Mat>& params, int eyeWidth);

}  // namespace stereo::wide
