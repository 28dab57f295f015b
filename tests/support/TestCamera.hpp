// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "sources/HostCamera.hpp"
#include "tests/support/ScriptedCapture.hpp"

namespace stereo::test {

/// Index of a video device that no back end knows: nothing is opened and OpenCV says nothing about it.
constexpr int noDevice = model::noDevice;

/// A camera whose members a test can look at and whose device it can replace. Stops its workers when destroyed.
class TestCamera : public sources::HostCamera {
public:
  TestCamera() = default;
  explicit TestCamera(const std::string& settingsPath) : HostCamera(settingsPath) {}
  /// A camera on a scripted device.
  explicit TestCamera(ScriptedCapture::Script script) : TestCamera() {
    install(new ScriptedCapture(std::move(script)));
  }
  ~TestCamera() override;

  /// Replaces the device, which the camera then owns, and marks the camera as opened.
  void install(cv::VideoCapture* device);
  ScriptedCapture& device() { return dynamic_cast<ScriptedCapture&>(*m_videoCapture); }

  using StereoCamera::m_algorithm;
  using StereoCamera::m_captureThread;
  using StereoCamera::m_computeThread;
  using StereoCamera::m_defaultHFov;
  using StereoCamera::m_depthmode;
  using StereoCamera::m_deviceNode;
  using StereoCamera::m_disparityCond;
  using StereoCamera::m_disparityFrame;
  using StereoCamera::m_disparityMutex;
  using StereoCamera::m_fisheyeFov;
  using StereoCamera::m_fisheyeRadius;
  using StereoCamera::m_frameCond;
  using StereoCamera::m_frameMutex;
  using StereoCamera::m_frameRate;
  using StereoCamera::m_hFov;
  using StereoCamera::m_ipLastSegment;
  using StereoCamera::m_isComputing;
  using StereoCamera::m_isOpened;
  using StereoCamera::m_leftDistortion;
  using StereoCamera::m_leftIntrinsic;
  using StereoCamera::m_leftRotation;
  using StereoCamera::m_leftXi;
  using StereoCamera::m_log;
  using StereoCamera::m_logLevel;
  using StereoCamera::m_logName;
  using StereoCamera::m_lonLatFov;
  using StereoCamera::m_lonLatMaps;
  using StereoCamera::m_maxDepth;
  using StereoCamera::m_minDepth;
  using StereoCamera::m_posNumber;
  using StereoCamera::m_rawFrame;
  using StereoCamera::m_rawFrameSize;
  using StereoCamera::m_rectCameraMatrix;
  using StereoCamera::m_rectFrameSize;
  using StereoCamera::m_rectifyMaps;
  using StereoCamera::m_reservedMats;
  using StereoCamera::m_rightDistortion;
  using StereoCamera::m_rightIntrinsic;
  using StereoCamera::m_rightRotation;
  using StereoCamera::m_rightXi;
  using StereoCamera::m_serialNumber;
  using StereoCamera::m_threshold;
  using StereoCamera::m_translation;
  using StereoCamera::m_transmode;
  using StereoCamera::m_transrate;
  using StereoCamera::m_useShareMemory;
  using StereoCamera::m_useTransmit;
  using StereoCamera::m_videoCapture;
  using StereoCamera::m_videoWriter;
};

/// A plausible calibration of one eye {K, D, xi, R, translation}, for a raw frame 1856 pixels wide. The same number
/// gives the same calibration.
std::vector<cv::Mat> someCalibration(int number);

/// Gives the camera a calibration of both eyes.
void calibrate(StereoCamera& camera);

}  // namespace stereo::test
