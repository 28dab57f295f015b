// SPDX-License-Identifier: Apache-2.0
// A camera without a device, for the reads that only the class offers.
#pragma once

#include <opencv2/core.hpp>

#include "sources/HostCamera.hpp"

namespace stereo::bench {

/// Its rectified reads find maps and eyes in memory, without waiting for a frame.
class PreparedCamera : public sources::HostCamera {
public:
  /// The perspective maps of both eyes, [eye][map].
  void setMaps(const cv::Mat (&maps)[2][2]);
  /// What `getStereoFrame` returns, as headers: no copy, no wait.
  void setEyes(const cv::Mat& left, const cv::Mat& right);

  bool getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) override;

private:
  cv::Mat m_left;
  cv::Mat m_right;
};

}  // namespace stereo::bench
