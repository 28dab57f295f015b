// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/depth/SimulatedEyes.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "sim/GroundTruth.hpp"
#include "sim/Renderer.hpp"

namespace stereo::test {

namespace {

const cv::Size frameSize(928, 400);

}  // namespace

SimulatedEyes::SimulatedEyes(const sim::Scene::Options& scene, std::uint32_t rigSeed)
    : m_scene(std::make_shared<const sim::Scene>(scene)), m_rig(rigSeed) {}

SimulatedEyes::Pair SimulatedEyes::at(double time, std::uint64_t index, const sim::Degradation& picture) const {
  const cv::Mat clean = sim::Renderer(m_scene, m_rig, frameSize).render(time);
  const cv::Mat frame = sim::Degrader(picture, 5).apply(clean, index);
  return {frame.colRange(0, 464).clone(), frame.colRange(464, 928).clone()};
}

cv::Mat SimulatedEyes::truth(const cv::Mat& rays, double time) const {
  return sim::GroundTruth(m_scene, m_rig).along(rays, time).range;
}

cv::Mat SimulatedEyes::seen(const cv::Mat& rays, double time) const {
  return sim::GroundTruth(m_scene, m_rig).along(rays, time).seen;
}

WideDepthCalibration SimulatedEyes::calibration() const {
  return WideDepthCalibration::from(m_rig.calibParams(false), m_rig.calibParams(true));
}

WideDepthOptions smallView() {
  WideDepthOptions options;
  options.size = {232, 200};
  options.horizontalField = 160;
  options.verticalField = 140;
  options.nearest = 0.2;
  options.threads = 1;
  options.selfCalibrate = false;
  return options;
}

Accuracy accuracyOf(const WideDepthImage& image, const cv::Mat& truth, const cv::Mat& seen, double nearest,
                    double farthest) {
  double count = 0;
  std::vector<double> errors;
  for (int row = 0; row < truth.rows; ++row) {
    for (int column = 0; column < truth.cols; ++column) {
      const double t = truth.at<float>(row, column);
      if (seen.at<unsigned char>(row, column) == 0 || t < nearest || t > farthest) {
        continue;
      }
      ++count;
      const double r = image.range.at<float>(row, column);
      if (r > 0) {
        errors.push_back(std::abs(r / t - 1));
      }
    }
  }
  if (errors.empty()) {
    return {};
  }
  const auto valid = static_cast<double>(errors.size());
  const auto wrong = std::count_if(errors.begin(), errors.end(), [](double e) { return e > 0.1; });
  std::nth_element(errors.begin(), errors.begin() + static_cast<std::ptrdiff_t>(errors.size() / 2), errors.end());
  return {100 * valid / count, 100 * static_cast<double>(wrong) / valid, 100 * errors[errors.size() / 2]};
}

}  // namespace stereo::test
