// SPDX-License-Identifier: Apache-2.0
// The camera on a real video device.
#pragma once

#include <string>

#include "sources/HostCamera.hpp"

namespace stereo::app {

/// A camera on a real video device, with what a host has to see to itself: the radius of the image circle, which the
/// class takes from `setRawFrameSize` alone and for the camera's two formats only.
class DeviceCamera : public sources::HostCamera {
public:
  using HostCamera::HostCamera;

  /// Sends the frame size to the device and sets the image circle: a quarter of the width for the camera's formats,
  /// otherwise so large that every pixel stays. Before `startCapture`.
  void chooseFrameSize(cv::Size size);

  /// The video device itself; with GStreamer it may have closed since the camera was opened.
  const cv::VideoCapture* device() const { return m_videoCapture; }
  int nodeNumber() const { return m_deviceNode; }
};

}  // namespace stereo::app
