// SPDX-License-Identifier: Apache-2.0
#include <opencv2/highgui.hpp>

#include "StereoCamera.hpp"
#include "StereoCameraCommon/Internals.hpp"
#include "StereoCameraCommon/Relaxed.hpp"
#include "core/Cloud.hpp"
#include "core/Numbers.hpp"

using stereo::relaxed;
using stereo::core::CloudForm;
using stereo::core::CloudImages;
using stereo::core::CloudPoint;

// Waits, `m_disparityMutex` being held by `disparityLock`, for the next disparity: once, without a time-out, whatever
// notifies `m_disparityCond`. False if a stop operation ended the wait instead.
bool StereoCamera::waitForDisparity(std::unique_lock<std::mutex>& disparityLock) {
  const Internals& shared = *m_internals;
  if (shared.disparityReadersReleased) {
    return false;
  }
  const std::uint64_t published = shared.publishedDisparities;
  const std::uint64_t releases = shared.disparityReleases;
  m_disparityCond.wait(disparityLock);
  return shared.publishedDisparities != published || shared.disparityReleases == releases;
}

stereo::core::CloudModel StereoCamera::cloudModel() const {
  stereo::core::CloudModel model;
  model.mode = relaxed(m_depthmode);
  const cv::Mat camera = rectCameraMatrix();
  if (!camera.empty()) {
    stereo::core::requireDoubles(camera, 3, 3, "camera matrix");
    model.fx = camera.at<double>(0, 0);
    model.fy = camera.at<double>(1, 1);
    model.cx = camera.at<double>(0, 2);
    model.cy = camera.at<double>(1, 2);
  }
  model.baselineMillimetres = m_translation.empty() ? 0.0 : cv::norm(m_translation, cv::NORM_L2);
  model.xi = m_leftXi.empty() ? 0.0 : stereo::core::scalarOf(m_leftXi);
  model.threshold = relaxed(m_threshold);
  return model;
}

bool StereoCamera::getPointCloud(std::vector<cv::Vec3f>& points, std::chrono::microseconds& timestamp) {
  CloudImages images;
  {
    std::unique_lock lock(m_disparityMutex);
    if (!waitForDisparity(lock)) {
      return false;
    }
    images.view = m_disparityFrame.first.clone();
    images.disparity = m_disparityFrame.second.clone();
    timestamp = relaxed(m_rawFrame.timestamp);
  }
  getDepthFrame(images.disparity, images.depth);
  for (const CloudPoint& sampled : stereo::core::sampleCloud(images, cloudModel(), CloudForm::plain)) {
    points.push_back(sampled.point);
  }
  return !points.empty();
}

bool StereoCamera::getPointCloud(std::vector<PCL>& points, std::chrono::microseconds& timestamp) {
  CloudImages images;
  {
    std::unique_lock lock(m_disparityMutex);
    if (!waitForDisparity(lock)) {
      return false;
    }
    images.view = m_disparityFrame.first.clone();
    images.disparity = m_disparityFrame.second.clone();
    // The lock stays held: the worker cannot publish while the depth is made and HighGUI sees to its events.
    getDepthFrame(images.disparity, images.depth);
    cv::waitKey(5);
    timestamp = relaxed(m_rawFrame.timestamp);
  }
  for (const CloudPoint& sampled : stereo::core::sampleCloud(images, cloudModel(), CloudForm::coloured)) {
    points.push_back({sampled.point, images.view.at<cv::Vec3b>(sampled.row, sampled.col)});
  }
  return !points.empty();
}
