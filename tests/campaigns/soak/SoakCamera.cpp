// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/SoakCamera.hpp"

#include <utility>

using std::chrono::microseconds;

namespace stereo::soak {

namespace {

thread_local bool reads = false;
thread_local microseconds latestPair{0};

}  // namespace

SoakCamera::SoakCamera(std::unique_ptr<cv::VideoCapture> device, cv::Size frameSize, const Setting& setting,
                       Ledger& ledger)
    : VirtualCamera(std::move(device), 0), m_ledger(ledger) {
  const sim::Rig rig(setting.seed);
  for (const bool isRight : {false, true}) {
    setCalibParams(rig.calibParams(isRight), isRight);
  }
  setRawFrameSize(frameSize);
  setRectFrameSize(setting.rectSize);
  setHorizontalField(setting.hFov);
  setLonLatField(setting.lonLatFov);
  setDepthLimits(setting.nearest, setting.farthest);
  setCloudRadius(setting.cloudRadius);
}

void SoakCamera::thisThreadReads() { reads = true; }

microseconds SoakCamera::pairTimestamp() { return latestPair; }

void SoakCamera::forgetPair() { latestPair = microseconds(0); }

bool SoakCamera::getStereoFrame(cv::Mat& left, cv::Mat& right, microseconds& timestamp) {
  const bool got = VirtualCamera::getStereoFrame(left, right, timestamp);
  latestPair = got ? timestamp : microseconds(0);
  return got;
}

bool SoakCamera::getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view, microseconds& timestamp) {
  const bool got = VirtualCamera::getRectStereoFrame(left, right, view, timestamp);
  if (got && !reads) {
    // A timestamp that the ledger doesn't know comes up again with the disparity, where it counts as a failure.
    m_ledger.matched(timestamp);
  }
  return got;
}

microseconds SoakCamera::disparityTimestamp() {
  const std::lock_guard lock(m_disparityMutex);
  return m_disparityFrame.timestamp;
}

bool SoakCamera::nextDisparity(microseconds before, std::chrono::milliseconds patience, TimeFrame& result) {
  std::unique_lock lock(m_disparityMutex);
  if (!m_disparityCond.wait_for(lock, patience, [&] { return m_disparityFrame.timestamp != before; })) {
    return false;
  }
  m_disparityFrame.first.copyTo(result.first);
  m_disparityFrame.second.copyTo(result.second);
  result.timestamp = m_disparityFrame.timestamp;
  return true;
}

}  // namespace stereo::soak
