// SPDX-License-Identifier: Apache-2.0
// What the capture worker does with the pixels of one frame.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// Deep copies of the two halves of a side-by-side frame, each of half the frame's width, rounded down: an odd last
/// column is dropped. Written into `left` and `right` where they fit.
void splitEyes(const cv::Mat& frame, cv::Mat& left, cv::Mat& right);

/// One pass: split the frame into eyes, mask them, publish copies. The eyes keep their memory from pass to pass, so
/// that a pass allocates nothing. One thread at a time.
class CapturePass {
public:
  /// Splits a side-by-side frame and blacks out what lies outside the image circle of `radius` pixels. The mask is
  /// defined on CV_8UC3; frames of any other type pass unmasked.
  void process(const cv::Mat& frame, int radius);

  /// The eyes of the latest frame, each in one piece of memory; the next `process` overwrites them.
  const cv::Mat& left() const { return m_left; }
  const cv::Mat& right() const { return m_right; }

  /// Deep copies of both eyes for readers. Readers copy from these images under the lock that guards them; a reader
  /// that keeps a header instead keeps its pixels, and the next frame gets other memory.
  void publish(cv::Mat& left, cv::Mat& right) const;

private:
  cv::Mat m_left;
  cv::Mat m_right;
};

}  // namespace stereo::core
