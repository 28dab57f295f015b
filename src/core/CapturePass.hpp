// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

#include "src/core/SoleOwner.hpp"

namespace stereo::core {

/// Deep copies of the two halves of a side-by-side frame, each of half the frame's width, rounded down: an odd last
/// column is dropped. Written into `left` and `right` where they fit.
inline void splitEyes(const cv::Mat& frame, cv::Mat& left, cv::Mat& right) {
  const int h = frame.cols >> 1;
  frame(cv::Rect(0, 0, h, frame.rows)).copyTo(left);
  frame(cv::Rect(h, 0, h, frame.rows)).copyTo(right);
}

/// Deep copy for readers. They take copies of their own under the lock that guards `published`; whoever holds on to a
/// header of it keeps those pixels and the next image gets others.
inline void publishCopy(const cv::Mat& image, cv::Mat& published) { copyInto(image, published); }

}  // namespace stereo::core
