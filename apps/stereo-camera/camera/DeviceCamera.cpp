// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/DeviceCamera.hpp"

#include <cmath>

#include "model/CameraFacts.hpp"

namespace stereo::app {

void DeviceCamera::chooseFrameSize(cv::Size size) {
  if (model::isFrameSize(size)) {
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

}  // namespace stereo::app
