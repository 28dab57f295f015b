// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/WideDepthEngine.hpp"

#include <stdexcept>

namespace stereo::wide {

namespace {

class WideDepthEngine : public Engine {
public:
  WideDepthEngine(const Camera& camera, const WideDepthOptions& options, const View& view)
      : m_depth(calibrationOf(camera), camera.eye, options) {
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

WideDepthCalibration calibrationOf(const Camera& camera) {
  const std::vector<cv::Mat>& left = camera.params[0];
  const std::vector<cv::Mat>& right = camera.params[1];
  WideDepthCalibration calibration;
  calibration.leftIntrinsic = left[0];
  calibration.leftDistortion = left[1];
  calibration.leftXi = left[2];
  calibration.leftRotation = left[3];
  calibration.rightIntrinsic = right[0];
  calibration.rightDistortion = right[1];
  calibration.rightXi = right[2];
  calibration.rightRotation = right[3];
  calibration.translation = right[4];
  return calibration;
}

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
