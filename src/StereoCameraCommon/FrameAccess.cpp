// SPDX-License-Identifier: Apache-2.0
// Reads of raw and rectified frames.
#include "StereoCamera.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/CallingThread.hpp"
#include "src/StereoCameraCommon/Internals.hpp"
#include "src/core/OutputReuse.hpp"
#include "src/core/RectifyMap.hpp"
#include "src/core/StreamMode.hpp"
#include "src/system/ImageMemory.hpp"

using stereo::DisparityWorkerThread;
using stereo::loadRelaxed;
using stereo::core::copyInto;
using stereo::core::EyeMaps;
using stereo::core::rectify;
using stereo::core::StreamMode;
using stereo::core::StreamSource;
using stereo::core::writeInto;
using stereo::sys::recycledCopy;
using stereo::sys::recycledImage;

bool StereoCamera::getRawFrame(cv::Mat& frame, std::chrono::microseconds& timestamp) {
  TimeFrame local;
  {
    std::unique_lock lock(m_frameMutex);
    if (!waitForFrame(lock, DisparityWorkerThread::isOf(this))) {
      return false;
    }
    local.first = recycledCopy(m_rawFrame.first);
    local.second = recycledCopy(m_rawFrame.second);
    if (const StreamMode mode = wantedStream(); mode.source == StreamSource::rawEyes) {
      sendToStream(mode, m_rawFrame.first, local.second);
    }
    timestamp = m_rawFrame.timestamp;
  }
  writeInto(frame, [&](cv::Mat& out) { cv::hconcat(local.first, local.second, out); });
  return !frame.empty();
}

bool StereoCamera::getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) {
  std::unique_lock lock(m_frameMutex);
  if (!waitForFrame(lock, DisparityWorkerThread::isOf(this))) {
    return false;
  }
  copyInto(m_rawFrame.first, left);
  copyInto(m_rawFrame.second, right);
  timestamp = m_rawFrame.timestamp;
  lock.unlock();
  return !left.empty() && !right.empty();
}

bool StereoCamera::getRectStereoFrame(cv::Mat& left, cv::Mat& right) {
  cv::Mat leftEye = recycledImage();
  cv::Mat rightEye = recycledImage();
  std::chrono::microseconds timestamp{0};
  const stereo::RectifiedRead read(this);
  if (getStereoFrame(leftEye, rightEye, timestamp)) {
    EyeMaps maps[2];
    {
      const std::lock_guard lock(m_internals->mapMutex);
      maps[0] = {m_rectifyMaps[0][0], m_rectifyMaps[0][1]};
      maps[1] = {m_rectifyMaps[1][0], m_rectifyMaps[1][1]};
    }
    rectify(leftEye, maps[0], left);
    rectify(rightEye, maps[1], right);
    if (const StreamMode mode = wantedStream(); mode.source == StreamSource::perspectivePair) {
      sendToStream(mode, left, right);
    }
  } else if (read.wasEndedByStop()) {
    return false;  // otherwise a host that reuses its images would get true forever, with the last frame
  }
  return !left.empty() && !right.empty();
}

bool StereoCamera::getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view,
                                      std::chrono::microseconds& timestamp) {
  cv::Mat leftEye = recycledImage();
  cv::Mat rightEye = recycledImage();
  const stereo::RectifiedRead read(this);
  if (getStereoFrame(leftEye, rightEye, timestamp)) {
    const int depthMode = loadRelaxed(m_depthmode);
    EyeMaps viewMaps;
    EyeMaps maps[2];
    {
      const std::lock_guard lock(m_internals->mapMutex);
      viewMaps = {m_rectifyMaps[0][0], m_rectifyMaps[0][1]};
      const auto& chosen = depthMode == 1 ? m_lonLatMaps : m_rectifyMaps;
      maps[0] = {chosen[0][0], chosen[0][1]};
      maps[1] = {chosen[1][0], chosen[1][1]};
    }
    rectify(leftEye, viewMaps, view);
    if (depthMode == 1 || depthMode == 2) {
      rectify(leftEye, maps[0], left);
      rectify(rightEye, maps[1], right);
    }
  } else if (read.wasEndedByStop()) {
    return false;
  }
  return !left.empty() && !right.empty() && !view.empty();
}

bool StereoCamera::getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view) {
  std::chrono::microseconds timestamp{0};
  return getRectStereoFrame(left, right, view, timestamp);
}
