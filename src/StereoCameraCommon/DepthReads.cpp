// SPDX-License-Identifier: Apache-2.0
// Reads of metric and colored depth.
#include "src/core/Depth.hpp"

#include "StereoCamera.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/CallingThread.hpp"
#include "src/StereoCameraCommon/Internals.hpp"
#include "src/core/Numbers.hpp"
#include "src/core/StreamMode.hpp"
#include "src/system/ImageMemory.hpp"

using stereo::DisparityWorkerThread;
using stereo::loadRelaxed;

// The parameters of the depth formulas. A second start may swap the camera matrix at any time.
stereo::core::DepthModel StereoCamera::depthModel() const {
  stereo::core::DepthModel model;
  model.mode = loadRelaxed(m_depthmode);
  model.b = stereo::core::baselineMeters(m_translation);
  model.W = loadRelaxed(m_rectFrameSize).width;
  model.lonLatFov = loadRelaxed(m_lonLatFov);
  model.minDepth = loadRelaxed(m_minDepth);
  model.maxDepth = loadRelaxed(m_maxDepth);
  const cv::Mat camera = rectCameraMatrix();
  model.f = camera.empty() ? 0.0 : stereo::core::scalarOf(camera);
  return model;
}

cv::Mat StereoCamera::rectCameraMatrix() const {
  const std::lock_guard lock(m_internals->mapMutex);
  return m_rectCameraMatrix;
}

void StereoCamera::getDepthFrame(cv::Mat& disparity, cv::Mat& depth) {
  stereo::core::writeMetricDepth(disparity, depthModel(), depth);
}

bool StereoCamera::getDepthFrame(cv::Mat& depth, bool /*color*/, std::chrono::microseconds& timestamp) {
  if (!m_isComputing) {
    return false;
  }
  cv::Mat disparity;
  {
    std::unique_lock lock(m_frameMutex);
    if (!waitForFrame(lock, DisparityWorkerThread::isOf(this))) {
      return false;
    }
    cv::Mat published;
    {
      const std::lock_guard headers(m_internals->disparityHeaderMutex);
      published = m_disparityFrame.second;
    }
    disparity = stereo::sys::recycledCopy(published);
    timestamp = m_rawFrame.timestamp;
  }
  if (disparity.empty()) {
    return false;
  }
  const stereo::core::DepthModel model = depthModel();
  cv::Mat depths = stereo::sys::recycledImage();
  stereo::core::writeDepthPicture(disparity, model, depths, depth);
  const stereo::core::StreamMode stream = wantedStream();
  if (stream.source == stereo::core::StreamSource::depthPicture && model.mode == 2) {
    cv::Mat view;
    {
      const std::lock_guard headers(m_internals->disparityHeaderMutex);
      view = m_disparityFrame.first;
    }
    sendToStream(stream, view, depth);
  }
  return !depth.empty();
}
