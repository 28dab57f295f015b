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
  // For the longest code that can come: clearing that for each picture would cost more than copying what did come.
  std::unique_ptr<unsigned char[]> m_memory;
  std::size_t m_capacity = 0;  // bytes
};

}  // namespace stereo::app
