// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/WideDepthEngine.hpp"

#include <stdexcept>

namespace stereo::wide {

namespace {

class WideDepthEngine : public Engine {
public:
  WideDepthEngine(const Camera& camera, const WideDepthOptions& options, const View& view)
      : m_depth(WideDepthCalibration::from(camera.params[0], camera.params[1]), camera.eye, options) {
    if (cv::norm(m_depth.rays(), view.rays(), cv::NORM_INF) > 1e-5) {
      throw std::logic_error("the rays of stereo::WideDepth are not those of the judge");
    }
  }

  Measured measure(const cv::Mat& left, const cv::Mat& right) override {
    m_depth.compute(left, right, m_image);
    return {m_image.range, m_image.state, m_image.confidence};
  }

private:
  WideDepth m_depth;
  WideDepthImage m_image;
};

}  // namespace

WideDepthOptions optionsOf(const Task& task) {
  WideDepthOptions options;
  options.size = task.view.size;
  options.horizontalField = task.view.horizontalField;
  options.verticalField = task.view.verticalField;
  options.nearest = task.nearest;
  options.farthest = task.farthest;
  options.selfCalibrate = task.selfCalibrate;
  return options;
}

EngineKind wideDepthEngine() {
  return {"WideDepth", [](const Camera& camera, const Task& task) {
            return std::make_unique<WideDepthEngine>(camera, optionsOf(task), task.view);
          }};
}

}  // namespace stereo::wide
