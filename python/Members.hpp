// SPDX-License-Identifier: Apache-2.0
// Access to the camera's protected members.
#pragma once

#include "StereoCamera.hpp"

namespace stereo::python {

/// Gives access to the protected members: `camera.*(&Members::m_hFov)`. Never instantiated.
class Members : public StereoCamera {
public:
  Members() = delete;

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
};

}  // namespace stereo::python
