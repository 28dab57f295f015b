// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "StereoCamera.hpp"

namespace stereo::sim {

/// A camera whose frames come from a source such as `FrameSource` instead of a video device, with setters for what a
/// settings file would otherwise tell.
///
/// Life and threads are those of `StereoCamera`, but for one relief: destroying it stops the workers.
class VirtualCamera : public StereoCamera {
public:
  /// An index whose back end doesn't exist, so that the base class finds no device and OpenCV has nothing to report.
  static constexpr int kNoDevice = 9900;

  /// As the base class, but the log takes the file's level at once: it was made before there were settings.
  bool loadConfig(std::string path) override;

  // Setters: the host's thread, before `startCapture`.

  /// 1: depth from the longitude-latitude pair, 2: from the perspective pair.
  void setDepthMode(int mode) { m_depthmode = mode; }
  /// 0: semi-global matching, 1: block matching, any other: none.
  void setAlgorithm(int algorithm) { m_algorithm = algorithm; }
  /// Horizontal field of the perspective view, degrees, above 0 and below 180.
  void setHorizontalField(double degrees) { m_hFov = degrees; }
  /// Range of the longitude-latitude view, degrees.
  void setLonLatField(double degrees) { m_lonLatFov = degrees; }
  /// Limits of depth, metres.
  void setDepthLimits(float nearest, float farthest);
  /// Largest distance from the principal point in the clouds, rectified pixels.
  void setCloudRadius(int pixels) { m_threshold = pixels; }

  /// What the network stream shows (-1 nothing, 0 to 4), the rate told to the encoder and the receiver's last octet.
  void setStream(int mode, double rate, int lastOctet);
  /// Whether the stream that was asked for could be opened. Once a first frame was read: the worker opens it before.
  bool streamOpened() const { return m_videoWriter.isOpened(); }

  /// The latest disparity (CV_32FC1, pixels; empty before the first one) with the view that came with it; copies. Any
  /// thread, except one that holds the disparity's mutex.
  TimeFrame latestDisparity();

  int depthMode() const { return m_depthmode; }
  int algorithm() const { return m_algorithm; }
  double horizontalField() const { return m_hFov; }
  double lonLatField() const { return m_lonLatFov; }
  float nearLimit() const { return m_minDepth; }
  float farLimit() const { return m_maxDepth; }
  int cloudRadius() const { return m_threshold; }
  cv::Size rectFrameSize() const { return m_rectFrameSize; }
  int fisheyeRadius() const { return m_fisheyeRadius; }

protected:
  /// Takes over the source as this camera's device, opened, at `rate` frames per second (0: whatever comes). Its
  /// `release`, called from another thread, has to end a read that waits.
  VirtualCamera(std::unique_ptr<cv::VideoCapture> source, double rate);

  /// Ends both workers, whatever they wait for. The most derived destructor calls it first: the workers call virtual
  /// operations, which must not change under them.
  void stopWorkers();
};

}  // namespace stereo::sim
