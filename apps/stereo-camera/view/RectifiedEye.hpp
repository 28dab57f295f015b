// SPDX-License-Identifier: Apache-2.0
// Views of one eye at a time.
#pragma once

#include <algorithm>
#include <array>
#include <utility>

#include <opencv2/imgproc.hpp>

namespace stereo::app {

/// A view of one eye, the same to the bit as by the camera's own maps. Those are of floating point, which `cv::remap`
/// rounds anew for each picture; these are rounded once. One thread at a time.
class RectifiedEye {
public:
  /// Maps of `HostCamera::viewMaps`, not written to any more. Empty ones make `of` throw cv::Exception.
  explicit RectifiedEye(std::array<cv::Mat, 2> maps) : m_given(std::move(maps)) {}

  /// Bilinear, black where the eye saw nothing. The picture lasts until the next call.
  const cv::Mat& of(const cv::Mat& eye) {
    if (m_places.empty()) {
      cv::convertMaps(m_given[0], m_given[1], m_places, m_fractions, CV_16SC2);
    }
    m_picture.create(m_places.size(), eye.type());
    // In strips that are too small to be shared among threads: waking those costs more than the view itself.
    const int most = std::max(1, pixelsOfOneThread / m_picture.cols);
    for (int row = 0; row < m_picture.rows; row += most) {
      const cv::Range rows(row, std::min(row + most, m_picture.rows));
      cv::remap(eye, m_picture.rowRange(rows), m_places.rowRange(rows), m_fractions.rowRange(rows), cv::INTER_LINEAR,
                cv::BORDER_CONSTANT);
    }
    return m_picture;
  }

private:
  static constexpr int pixelsOfOneThread = 1 << 16;  // with no more than these, `cv::remap` runs on the calling thread

  std::array<cv::Mat, 2> m_given;
  cv::Mat m_places, m_fractions, m_picture;
};

}  // namespace stereo::app
