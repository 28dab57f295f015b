// SPDX-License-Identifier: Apache-2.0
// The camera on a real video device.
#pragma once

#include <string>

#include "sources/HostCamera.hpp"

namespace stereo::app {

/// A camera on a real video device that sets the radius of the image circle for any frame size. The class sets it only
/// in `setRawFrameSize`, and only for the camera's two formats.
class DeviceCamera : public sources::HostCamera {
public:
  using HostCamera::HostCamera;

  /// Sends the frame size to the device and sets the image circle: a quarter of the width for the camera's formats,
  /// otherwise large enough to keep every pixel. Call before `startCapture`.
  void chooseFrameSize(cv::Size size);

  /// The video device itself; with GStreamer it may have closed since the camera was opened.
  const cv::VideoCapture* device() const { return m_videoCapture; }
  int nodeNumber() const { return m_deviceNode; }
};

}  // namespace stereo::app
