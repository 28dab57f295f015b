// SPDX-License-Identifier: Apache-2.0
// A camera without a device, for the reads that only the class offers.
#include "bench/support/PreparedCamera.hpp"

namespace stereo::bench {

void PreparedCamera::setMaps(const cv::Mat (&maps)[2][2]) {
  for (int eye = 0; eye < 2; ++eye) {
    for (int map = 0; map < 2; ++map) {
      m_rectifyMaps[eye][map] = maps[eye][map];
    }
  }
}

void PreparedCamera::setEyes(const cv::Mat& left, const cv::Mat& right) {
  m_left = left;
  m_right = right;
}

bool PreparedCamera::getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) {
  left = m_left;
  right = m_right;
  timestamp = std::chrono::microseconds(1);
  return true;
}

}  // namespace stereo::bench
