// SPDX-License-Identifier: Apache-2.0
// The camera for host programs: settings have setters and accessors, and its workers can be stopped in order.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "StereoCamera.hpp"
#include "model/CameraFacts.hpp"

namespace stereo::sources {

/// A camera's current settings, in the units of the settings file.
struct CameraSettings {
  int logLevel = 1;
  int deviceNode = 0;
  cv::Size frameSize;      ///< raw, side by side, pixels
  cv::Size rectifiedSize;  ///< one eye, pixels
  int frameRate = 30;
  int threshold = 120;
  int algorithm = 0;
  int ipLastSegment = 15;
  double hFov = 90.0;  ///< degrees
  double transrate = 0.0;
  int transmode = -1;
  int depthmode = 1;
  int fisheyeRadius = 0;  ///< raw pixels; not in the settings file
};

/// A `StereoCamera` with setters and accessors for what is otherwise set by a settings file.
///
/// Lifetime and threads are those of `StereoCamera`. Call everything on the host's thread unless stated otherwise.
class HostCamera : public StereoCamera {
public:
  /// On the video device /dev/video`deviceNode`. By default on none, to load and save files.
  explicit HostCamera(int deviceNode = model::noDevice) : StereoCamera(deviceNode) {}
  /// On the video device that the settings file names.
  explicit HostCamera(const std::string& settingsPath) : StereoCamera(settingsPath) {}

  // Setters: call before `startCapture`.

  /// 1: depth from the longitude-latitude pair, 2: from the perspective pair.
  void setDepthMode(int mode) { m_depthmode = mode; }
  /// 0: semi-global matching, 1: block matching, any other: none.
  void setAlgorithm(int algorithm) { m_algorithm = algorithm; }
  /// Horizontal field of the perspective view, degrees, above 0 and below 180.
  void setHorizontalField(double degrees) { m_hFov = degrees; }
  /// Range of the longitude-latitude view, degrees.
  void setLonLatField(double degrees) { m_lonLatFov = degrees; }
  /// Limits of depth, meters.
  void setDepthLimits(float nearest, float farthest);
  /// Largest distance from the principal point in the clouds, rectified pixels.
  void setCloudRadius(int pixels) { m_threshold = pixels; }
  /// What the network stream shows (-1 nothing, 0 to 4), the encoder's rate and the receiver's last octet.
  void setStream(int mode, double rate, int lastOctet);

  int depthMode() const { return m_depthmode; }
  int algorithm() const { return m_algorithm; }
  double horizontalField() const { return m_hFov; }
  double lonLatField() const { return m_lonLatFov; }
  float nearLimit() const { return m_minDepth; }
  float farLimit() const { return m_maxDepth; }
  int cloudRadius() const { return m_threshold; }
  cv::Size rectFrameSize() const { return m_rectFrameSize; }
  int fisheyeRadius() const { return m_fisheyeRadius; }
  CameraSettings settings() const;

  /// Whether the requested stream could be opened. Valid once a first frame was read, since the worker opens it before.
  bool streamOpened() const { return m_videoWriter.isOpened(); }

  /// The latest disparity (CV_32FC1, pixels; empty before the first one) with the view that came with it; copies. Any
  /// thread, except one that holds the disparity's mutex.
  TimeFrame latestDisparity();

  /// The maps of one eye for `cv::remap`, CV_32FC1 of the view's size: column and row in the eye's image. Empty before
  /// `startCapture`, which makes them, and without a calibration or a rectified size. Not while another thread starts
  /// the capture. They stay valid; nobody writes into them.
  std::array<cv::Mat, 2> viewMaps(bool isLonLat, bool isRight) const;

  /// Reports progress: `done` of `all` steps. It may throw, which ends the operation.
  using Progress = std::function<void(std::size_t done, std::size_t all)>;
  /// Does in advance what would delay the first frames. Call before `startCapture`.
  virtual void prepare(const Progress& /*progress*/) {}
  /// Whether the source has delivered its last frame. False if it has no end. Any thread.
  virtual bool isOver() const { return false; }
  /// Frames so far that the source could not decode and skipped. Any thread.
  virtual std::uint64_t skippedFrames() const { return 0; }
  /// Frames that were due but that nobody read in time; nothing where the device does not count them. Any thread.
  virtual std::optional<std::uint64_t> missedFrames() const { return std::nullopt; }

protected:
  /// Ends both workers. The most derived destructor must call it first, since the workers call virtual operations.
  void stopWorkers();
};

}  // namespace stereo::sources
