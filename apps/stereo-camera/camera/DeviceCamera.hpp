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

  /// The video device itself; with GStreamer it may have closed since the camera was opened.
  const cv::VideoCapture* device() const { return m_videoCapture; }
  int nodeNumber() const { return m_deviceNode; }

  /// 1: longitude-latitude pair, 2: perspective pair.
  void setDepthMode(int mode) { m_depthmode = mode; }
  /// 0: semi-global matching, 1: block matching.
  void setAlgorithm(int algorithm) { m_algorithm = algorithm; }
  /// What the network stream shows (-1 nothing, 0 to 4), the rate told to the encoder and the receiver's last octet.
  void setStream(int mode, double rate, int lastOctet);
  /// Whether the stream that was asked for could be opened. Once a first frame was read: the worker opens it before.
  bool streamOpened() const { return m_videoWriter.isOpened(); }
  /// The latest disparity (CV_32FC1, pixels) with the view that came with it; copies.
  TimeFrame latestDisparity();
  double horizontalField() const { return m_hFov; }
  float nearLimit() const { return m_minDepth; }
  float farLimit() const { return m_maxDepth; }
  cv::Size rectFrameSize() const { return m_rectFrameSize; }
};

}  // namespace stereo::app
