// SPDX-License-Identifier: Apache-2.0
// The pixels of one capture pass, plain form.
#include "bench/baseline/PlainCapturePass.hpp"

#include "bench/baseline/PlainFisheyeMask.hpp"

namespace stereo::baseline {

void CapturePass::run(const cv::Mat& frame, int radius, cv::Mat& publishedFirst, cv::Mat& publishedSecond) {
  const int h = frame.cols >> 1;
  frame(cv::Rect(0, 0, h, frame.rows)).copyTo(m_first);
  frame(cv::Rect(h, 0, h, frame.rows)).copyTo(m_second);
  convertRawFisheyeImage(radius, m_first, m_second);
  publishedFirst = m_first.clone();
  publishedSecond = m_second.clone();
}

}  // namespace stereo::baseline
