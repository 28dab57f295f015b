// SPDX-License-Identifier: Apache-2.0
// Wide depth and OpenCV's semi-global matcher, ready to be timed on the same scene.
#pragma once

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include "WideDepth.hpp"

namespace stereo::bench {

/// A rich room seen by the default rig, for a view of `width` x `height` pixels over 180 x 172 degrees. Takes seconds
/// to make.
class WideWork {
public:
  WideWork(const cv::Size& size, int threads);

  /// Everything: from two eyes of 928 x 800 pixels to ranges, states and confidence.
  void library() { m_depth.compute(m_left, m_right, m_image); }
  /// Matching alone, of eyes that are rectified already: block 7, 96 disparities in a view 464 pixels wide.
  void peer() { m_matcher->compute(m_gray[0], m_gray[1], m_disparity); }

  const WideDepthImage& image() const { return m_image; }

private:
  cv::Mat m_left, m_right;
  cv::Mat m_gray[2];
  WideDepth m_depth;
  WideDepthImage m_image;
  cv::Ptr<cv::StereoMatcher> m_matcher;
  cv::Mat m_disparity;
};

}  // namespace stereo::bench
