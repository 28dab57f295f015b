// SPDX-License-Identifier: Apache-2.0
// Prints where the members lie that a derived class was compiled against: offset and size in bytes.
#include <cstddef>
#include <cstdio>

#include <StereoCamera.hpp>
#include <SystemLog.hpp>
#include <WideDepth.hpp>

// The class is not of standard layout, so the language leaves the offsets to the compiler; that is what is asked here.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace {

class Probe : public StereoCamera {
public:
  static void print() {
#define MEMBER(name) std::printf("%6zu %4zu  %s\n", offsetof(Probe, name), sizeof(Probe::name), #name)
    MEMBER(m_fisheyeRadius);
    MEMBER(m_algorithm);
    MEMBER(m_logLevel);
    MEMBER(m_deviceNode);
    MEMBER(m_posNumber);
    MEMBER(m_serialNumber);
    MEMBER(m_threshold);
    MEMBER(m_frameRate);
    MEMBER(m_ipLastSegment);
    MEMBER(m_useShareMemory);
    MEMBER(m_useTransmit);
    MEMBER(m_isOpened);
    MEMBER(m_isComputing);
    MEMBER(m_maxDepth);
    MEMBER(m_minDepth);
    MEMBER(m_transmode);
    MEMBER(m_transrate);
    MEMBER(m_hFov);
    MEMBER(m_defaultHFov);
    MEMBER(m_fisheyeFov);
    MEMBER(m_lonLatFov);
    MEMBER(m_depthmode);
    MEMBER(m_videoWriter);
    MEMBER(m_rawFrameSize);
    MEMBER(m_rectFrameSize);
    MEMBER(m_rawFrame);
    MEMBER(m_disparityFrame);
    MEMBER(m_leftXi);
    MEMBER(m_leftRotation);
    MEMBER(m_leftIntrinsic);
    MEMBER(m_leftDistortion);
    MEMBER(m_rightXi);
    MEMBER(m_rightRotation);
    MEMBER(m_rightIntrinsic);
    MEMBER(m_rightDistortion);
    MEMBER(m_translation);
    MEMBER(m_rectCameraMatrix);
    MEMBER(m_rectifyMaps);
    MEMBER(m_lonLatMaps);
    MEMBER(m_reservedMats);
    MEMBER(m_log);
    MEMBER(m_logName);
    MEMBER(m_frameMutex);
    MEMBER(m_disparityMutex);
    MEMBER(m_frameCond);
    MEMBER(m_disparityCond);
    MEMBER(m_videoCapture);
    MEMBER(m_captureThread);
    MEMBER(m_computeThread);
#undef MEMBER
  }
};

template <typename Type>
void printType(const char* name) {
  std::printf("%6zu bytes, aligned to %zu  %s\n", sizeof(Type), alignof(Type), name);
}

}  // namespace

int main() {
  printType<StereoCamera>("StereoCamera");
  printType<StereoCamera::TimeFrame>("StereoCamera::TimeFrame");
  printType<PCL>("PCL");
  printType<SystemLog>("SystemLog");
  printType<stereo::WideDepthOptions>("stereo::WideDepthOptions");
  printType<stereo::WideDepthCalibration>("stereo::WideDepthCalibration");
  printType<stereo::WideDepthImage>("stereo::WideDepthImage");
  printType<stereo::WideDepth>("stereo::WideDepth");
  printType<stereo::WidePoint>("stereo::WidePoint");
  Probe::print();
  return 0;
}
