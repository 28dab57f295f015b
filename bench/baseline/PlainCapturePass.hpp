// SPDX-License-Identifier: Apache-2.0
// The pixels of one capture pass, plain form.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::baseline {

/// What the capture worker does with the pixels of one frame: split it into eyes, mask them, publish copies.
class CapturePass {
public:
  /// `frame` is CV_8UC3, both eyes side by side; `radius` is that of the image circle, pixels. Publishes new images
  /// each time.
  void run(const cv::Mat& frame, int radius, cv::Mat& publishedFirst, cv::Mat& publishedSecond);

private:
  cv::Mat m_first;  // kept from pass to pass
  cv::Mat m_second;
};

}  // namespace stereo::baseline
