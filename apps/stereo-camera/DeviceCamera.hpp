// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "StereoCamera.hpp"

namespace stereo::app {

/// A camera on a real video device, with what a host has to see to itself: the radius of the image circle, which the
/// class takes from `setRawFrameSize` alone and for the camera's two formats only.
class DeviceCamera : public StereoCamera {
public:
  explicit DeviceCamera(int deviceNode) : StereoCamera(deviceNode) {}
  explicit DeviceCamera(const std::string& settingsPath) : StereoCamera(settingsPath) {}

  /// Sends the frame size to the device and sets the image circle: a quarter of the width for the camera's formats,
  /// otherwise so large that every pixel stays. Before `startCapture`.
  void chooseFrameSize(cv::Size size);

  /// 1: longitude-latitude pair, 2: perspective pair.
  void setDepthMode(int mode) { m_depthmode = mode; }
  int depthMode() const { return m_depthmode; }
  double horizontalField() const { return m_hFov; }
  void setHorizontalField(double degrees) { m_hFov = degrees; }
  cv::Size rectFrameSize() const { return m_rectFrameSize; }
};

}  // namespace stereo::app
