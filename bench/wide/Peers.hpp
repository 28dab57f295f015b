// SPDX-License-Identifier: Apache-2.0
// OpenCV's matchers in the judge's geometry.
#pragma once

#include <utility>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include "bench/wide/Engine.hpp"
#include "bench/wide/View.hpp"

namespace stereo::wide {

/// Shows both eyes in the geometry of a view, by cv::remap.
class Rectifier {
public:
  Rectifier(const Camera& camera, const View& view);

  /// CV_8UC1 of the view's size; black where the eye sees nothing.
  cv::Mat gray(const cv::Mat& eyeImage, bool isRight) const;

private:
  std::pair<cv::Mat, cv::Mat> m_maps[2];
};

/// Block 15 and block 7, 96 disparities in a view 464 pixels wide and in proportion in others.
cv::Ptr<cv::StereoMatcher> blockMatcher(const View& view);
cv::Ptr<cv::StereoMatcher> semiGlobalMatcher(const View& view);

}  // namespace stereo::wide
