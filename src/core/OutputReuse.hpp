// SPDX-License-Identifier: Apache-2.0
// When a caller's image may be written into.
#pragma once

#include <cstddef>

#include <opencv2/core.hpp>

namespace stereo::core {

/// Whether the memory of `output` may be reused: no other header refers to its pixels, and they are a whole image.
/// False for memory that OpenCV did not allocate itself, because its owner may share it, and for parts of larger
/// images, because a result has to be continuous. Other threads may release their headers at the same time.
inline bool isSoleOwner(const cv::Mat& output) {
  cv::UMatData* const memory = output.u;
  return memory != nullptr && CV_XADD(&memory->refcount, 0) == 1 && CV_XADD(&memory->urefcount, 0) == 0 &&
         memory->currAllocator == cv::Mat::getStdAllocator() &&
         (static_cast<int>(memory->flags) & static_cast<int>(cv::UMatData::USER_ALLOCATED)) == 0 &&
         !output.isSubmatrix();
}

/// Whether the memory of two images overlaps, including the gaps between rows. Matrices of more dimensions, which have
/// no rows, are allowed, too.
inline bool overlap(const cv::Mat& a, const cv::Mat& b) {
  const auto end = [](const cv::Mat& image) -> const uchar* {
    if (image.dims > 2) {
      return image.dataend;
    }
    return image.ptr(image.rows - 1) + static_cast<std::size_t>(image.cols) * image.elemSize();
  };
  return !a.empty() && !b.empty() && a.data < end(b) && b.data < end(a);
}

/// Calls `make(cv::Mat&)` to write a result into the memory of `output` if that is its sole owner, so that a caller who
/// keeps its images needs no new memory. Any other output is replaced by a new image once the result is complete. If
/// `make` throws, an empty output stays empty. `make` must not read the output's pixels.
template <typename Make>
void writeInto(cv::Mat& output, const Make& make) {
  if (isSoleOwner(output)) {
    make(output);
    return;
  }
  cv::Mat fresh;
  if (output.data == nullptr) {
    fresh.allocator = output.allocator;
  }
  make(fresh);
  output = fresh;
}

/// Deep copy of `image` in `output`, in its old memory if `writeInto` may reuse it. An empty image empties it.
inline void copyInto(const cv::Mat& image, cv::Mat& output) {
  writeInto(output, [&](cv::Mat& out) { image.copyTo(out); });
}

}  // namespace stereo::core
