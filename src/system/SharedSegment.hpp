// SPDX-License-Identifier: Apache-2.0
// The shared-memory segment that offers images to another process.
#pragma once

#include <cstddef>
#include <cstdint>

#include <sys/ipc.h>

#include <opencv2/core.hpp>

namespace stereo::sys {

/// One System V shared-memory segment that offers images to another process: a 32-bit status word (0 free, 2 image
/// written) and, from byte 4, the pixels. Owned by one worker thread; owns nothing that outlives `detach` and `remove`.
class SharedSegment {
public:
  /// Creates or finds the segment. False if the system refuses, for instance because a smaller one has the key.
  bool create(key_t key, std::size_t size);

  /// Maps the segment and marks it free. False if there is none or the system refuses.
  bool attach();

  /// If the segment is free, marks it as written and then copies the first `bytes` bytes of pixels, in that order: a
  /// consumer may see the mark before all of the pixels. Does nothing and returns false if the segment is not free, not
  /// mapped or too small, or if the image is not one continuous CV_8UC3 block of at least that many bytes.
  bool offer(const cv::Mat& image, std::size_t bytes);

  /// Unmaps. False if nothing was mapped.
  bool detach();

  /// Has the system remove the segment once no process has it mapped. False if there is none, or none any more.
  bool remove();

private:
  int m_id = -1;
  std::size_t m_size = 0;
  void* m_address = nullptr;
};

}  // namespace stereo::sys
