// SPDX-License-Identifier: Apache-2.0
// What the capture worker does with the pixels of one frame.
#include "src/core/CapturePass.hpp"

#include "src/core/FisheyeMask.hpp"
#include "src/core/OutputReuse.hpp"

namespace stereo::core {

void splitEyes(const cv::Mat& frame, cv::Mat& left, cv::Mat& right) {
  const int h = frame.cols >> 1;
  frame(cv::Rect(0, 0, h, frame.rows)).copyTo(left);
  frame(cv::Rect(h, 0, h, frame.rows)).copyTo(right);
}

void CapturePass::process(const cv::Mat& frame, int radius) {
  splitEyes(frame, m_left, m_right);
  if (frame.type() == CV_8UC3) {
    maskCircle(radius, m_left, m_right);
  }
}

void CapturePass::publish(cv::Mat& left, cv::Mat& right) const {
  copyInto(m_left, left);
  copyInto(m_right, right);
}

}  // namespace stereo::core
