// SPDX-License-Identifier: Apache-2.0
#include "sources/VirtualCamera.hpp"

#include <utility>

#include "SystemLog.hpp"

namespace stereo::sources {

VirtualCamera::VirtualCamera(std::unique_ptr<cv::VideoCapture> source, double rate) {
  delete m_videoCapture;
  m_videoCapture = source.release();
  m_deviceNode = 0;
  if (rate > 0.0) {
    m_frameRate = static_cast<float>(rate);
  }
  m_isOpened = true;
}

bool VirtualCamera::loadConfig(std::string path) {
  const bool loaded = StereoCamera::loadConfig(std::move(path));
  if (loaded && m_log != nullptr) {
    m_log->setLogLevel(m_logLevel);
  }
  return loaded;
}

void VirtualCamera::stopWorkers() {
  m_isOpened = false;
  if (m_videoCapture != nullptr) {
    // Ends a slow source's wait for its next frame.
    m_videoCapture->release();
  }
  HostCamera::stopWorkers();
}

}  // namespace stereo::sources
