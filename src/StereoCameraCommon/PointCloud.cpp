// SPDX-License-Identifier: Apache-2.0
// Reads of point clouds.
#include <opencv2/highgui.hpp>

#include "StereoCamera.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/CallingThread.hpp"
#include "src/StereoCameraCommon/Internals.hpp"
#include "src/core/AppendCloud.hpp"
#include "src/core/Depth.hpp"
#include "src/core/Numbers.hpp"
#include "src/system/ImageMemory.hpp"

using stereo::loadRelaxed;
using stereo::core::CloudImages;
using stereo::sys::recycledCopy;
using stereo::sys::recycledImage;

stereo::core::CloudModel StereoCamera::cloudModel() const {
  stereo::core::CloudModel model;
  model.mode = loadRelaxed(m_depthmode);
  const cv::Mat camera = rectCameraMatrix();
  if (!camera.empty()) {
    stereo::core::requireDoubles(camera, 3, 3, "camera matrix");
    model.fx = camera.at<double>(0, 0);
    model.fy = camera.at<double>(1, 1);
    model.cx = camera.at<double>(0, 2);
    model.cy = camera.at<double>(1, 2);
  }
  model.baselineMillimeters = stereo::core::baselineMillimeters(m_translation);
  model.xi = m_leftXi.empty() ? 0.0 : stereo::core::scalarOf(m_leftXi);
  model.threshold = loadRelaxed(m_threshold);
  return model;
}

bool StereoCamera::getPointCloud(std::vector<cv::Vec3f>& points, std::chrono::microseconds& timestamp) {
  CloudImages images;
  images.depth = recycledImage();
  {
    std::unique_lock lock = waitForDisparity();
    if (!lock) {
      return false;
    }
    // Only the size of the view is used.
    images.view = m_disparityFrame.first;
    images.disparity = recycledCopy(m_disparityFrame.second);
    timestamp = loadRelaxed(m_rawFrame.timestamp);
  }
  getDepthFrame(images.disparity, images.depth);
  stereo::core::appendPlainCloud(images, cloudModel(), points);
  return !points.empty();
}

bool StereoCamera::getPointCloud(std::vector<PCL>& points, std::chrono::microseconds& timestamp) {
  CloudImages images;
  images.depth = recycledImage();
  {
    std::unique_lock lock = waitForDisparity();
    if (!lock) {
      return false;
    }
    images.view = recycledCopy(m_disparityFrame.first);
    images.disparity = recycledCopy(m_disparityFrame.second);
    // The lock stays held, so the worker cannot publish while the depth is computed and HighGUI handles its events.
    // The code that runs meanwhile may stop the camera.
    const stereo::HeldDisparityLock hold(this, lock);
    getDepthFrame(images.disparity, images.depth);
    cv::waitKey(5);
    timestamp = loadRelaxed(m_rawFrame.timestamp);
  }
  stereo::core::appendColoredCloud(images, cloudModel(), points);
  return !points.empty();
}
