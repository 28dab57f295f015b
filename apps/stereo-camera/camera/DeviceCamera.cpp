// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/DeviceCamera.hpp"

#include <cmath>

#include "model/CameraFacts.hpp"

namespace stereo::app {

void DeviceCamera::chooseFrameSize(cv::Size size) {
  if (sim::isCameraFormat(size)) {
    setRawFrameSize(size);
    return;
  }
  m_rawFrameSize = size;
  if (m_videoCapture != nullptr) {
    m_videoCapture->set(cv::CAP_PROP_FRAME_WIDTH, size.width);
    m_videoCapture->set(cv::CAP_PROP_FRAME_HEIGHT, size.height);
  }
  m_fisheyeRadius = static_cast<int>(std::ceil(std::hypot(size.width / 4.0, size.height / 2.0))) + 1;
}

void DeviceCamera::setStream(int mode, double rate, int lastOctet) {
  m_transmode = mode;
  m_transrate = rate;
  m_ipLastSegment = lastOctet;
}

StereoCamera::TimeFrame DeviceCamera::latestDisparity() {
  const std::lock_guard lock(m_disparityMutex);
  return {m_disparityFrame.first.clone(), m_disparityFrame.second.clone(), m_disparityFrame.timestamp};
}

}  // namespace stereo::app
