// SPDX-License-Identifier: Apache-2.0
#include "bench/support/PreparedCamera.hpp"

#include <algorithm>
#include <cstddef>

#include "bench/support/Inputs.hpp"
#include "src/core/CapturePass.hpp"

namespace stereo::bench {

namespace {

constexpr int noDevice = 9900;  // index that no back end knows: nothing is opened

}  // namespace

PreparedCamera::PreparedCamera() : StereoCamera(noDevice) {}

void PreparedCamera::setDepth(cv::Size size, int mode) {
  m_depthmode = mode;
  m_lonLatFov = lonLatField;
  m_rectFrameSize = size;
  m_rectCameraMatrix = viewMatrix(size, perspectiveMode);
  m_translation = (cv::Mat_<double>(3, 1) << -60.0, 0.0, 0.0);
}

void PreparedCamera::setMaps(const cv::Mat (&maps)[2][2]) {
  for (int eye = 0; eye < 2; ++eye) {
    for (int map = 0; map < 2; ++map) {
      m_rectifyMaps[eye][map] = maps[eye][map];
    }
  }
}

void PreparedCamera::setEyes(const cv::Mat& left, const cv::Mat& right) {
  m_left = left;
  m_right = right;
}

bool PreparedCamera::getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) {
  left = m_left;
  right = m_right;
  timestamp = std::chrono::microseconds(1);
  return true;
}

void CapturePass::run(const cv::Mat& frame, int radius, cv::Mat& publishedFirst, cv::Mat& publishedSecond) {
  core::splitEyes(frame, m_first, m_second);
  convertRawFisheyeImage(radius, m_first, m_second);
  core::publishCopy(m_first, publishedFirst);
  core::publishCopy(m_second, publishedSecond);
}

void ColouredDepth::run(const cv::Mat& disparity, const core::DepthModel& model, cv::Mat& picture) {
  const core::DepthRange range = core::measureDepths(disparity, model, m_depths);
  core::paintDepths(m_depths, range, picture);
}

void plainCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<cv::Vec3f>& points) {
  const core::SampledCloud cloud = core::sampleCloud(images, model, core::CloudForm::plain);
  points.resize(points.size() + cloud.size());
  std::transform(cloud.begin(), cloud.end(), points.end() - static_cast<std::ptrdiff_t>(cloud.size()),
                 [](const core::CloudPoint& sampled) { return sampled.point; });
}

void colouredCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<PCL>& points) {
  const core::SampledCloud cloud = core::sampleCloud(images, model, core::CloudForm::coloured);
  points.resize(points.size() + cloud.size());
  std::transform(cloud.begin(), cloud.end(), points.end() - static_cast<std::ptrdiff_t>(cloud.size()),
                 [&](const core::CloudPoint& sampled) {
                   return PCL{sampled.point, images.view.ptr<cv::Vec3b>(sampled.row)[sampled.col]};
                 });
}

}  // namespace stereo::bench
