// SPDX-License-Identifier: Apache-2.0
// JPEG for pictures that are sent at once.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::app {

/// Encodes pictures one after another with the same memory. One thread at a time.
class JpegEncoder {
public:
  JpegEncoder();

  /// Appends the picture (CV_8UC3, blue, green, red; not empty, at most 65500 pixels a side) to `bytes`. Returns how
  /// many bytes that were. Throws std::runtime_error if it cannot be encoded.
  std::uint32_t append(const cv::Mat& picture, std::vector<std::uint8_t>& bytes);

private:
  struct Closer {
    void operator()(void* handle) const;
  };
  std::unique_ptr<void, Closer> m_handle;
};

}  // namespace stereo::app
