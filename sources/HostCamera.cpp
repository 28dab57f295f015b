// SPDX-License-Identifier: Apache-2.0
#include "sources/HostCamera.hpp"

namespace stereo::sources {

void HostCamera::setDepthLimits(float nearest, float farthest) {
  m_minDepth = nearest;
  m_maxDepth = farthest;
}

void HostCamera::setStream(int mode, double rate, int lastOctet) {
  m_transmode = mode;
  m_transrate = rate;
  m_ipLastSegment = lastOctet;
}

CameraSettings HostCamera::settings() const {
  return {.logLevel = m_logLevel,
          .deviceNode = m_deviceNode,
          .frameSize = m_rawFrameSize,
          .rectifiedSize = m_rectFrameSize,
          .frameRate = static_cast<int>(m_frameRate),
          .threshold = m_threshold,
          .algorithm = m_algorithm,
          .ipLastSegment = m_ipLastSegment,
          .hFov = m_hFov,
          .transrate = m_transrate,
          .transmode = m_transmode,
          .depthmode = m_depthmode,
          .fisheyeRadius = m_fisheyeRadius};
}

StereoCamera::TimeFrame HostCamera::latestDisparity() {
  const std::lock_guard lock(m_disparityMutex);
  return {m_disparityFrame.first.clone(), m_disparityFrame.second.clone(), m_disparityFrame.timestamp};
}

std::array<cv::Mat, 2> HostCamera::viewMaps(bool isLonLat, bool isRight) const {
  const auto& maps = isLonLat ? m_lonLatMaps[isRight ? 1 : 0] : m_rectifyMaps[isRight ? 1 : 0];
  return {maps[0], maps[1]};
}

void HostCamera::stopWorkers() {
  stopStereoCompute();
  stopCapture();
}

}  // namespace stereo::sources
