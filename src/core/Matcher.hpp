// SPDX-License-Identifier: Apache-2.0
// From a rectified pair to its disparity.
#pragma once

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

namespace stereo::core {

/// Images that a match works on. What they hold afterwards is of no use, but their memory is.
struct MatchBuffers {
  cv::Mat grayLeft;    ///< Block matching only.
  cv::Mat grayRight;   ///< Block matching only.
  cv::Mat sixteenths;  ///< The matcher's own result, CV_16SC1, sixteenths of a pixel.
};

/// The stereo matcher of a disparity worker: 32 disparities from 0, blocks of 9 x 9 pixels. One thread at a time.
class Matcher {
public:
  /// Algorithm 0: semi-global matching on color; 1: block matching on gray; any other: no matcher.
  explicit Matcher(int algorithm);

  /// Disparity of a rectified pair (CV_8UC3), CV_32FC1 in pixels of the pair's size; negative where there is no match.
  /// Empty if `algorithm` is not the one that the matcher was made for, or none. Written into `disparity` if it fits.
  void compute(int algorithm, const cv::Mat& left, const cv::Mat& right, MatchBuffers& buffers,
               cv::Mat& disparity) const;

private:
  int m_algorithm;
  cv::Ptr<cv::StereoMatcher> m_matcher;
};

}  // namespace stereo::core
