// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include <opencv2/core.hpp>

namespace stereo::core {

/// Whether `output` may be written into: nobody but this header can see its pixels, and they are an image of their own.
/// False for memory that OpenCV did not allocate itself, since whoever did may show it to others, and for parts of
/// larger images, since a result is to be in one piece. Other threads drop their headers atomically.
inline bool isSoleOwner(const cv::Mat& output) {
  cv::UMatData* const memory = output.u;
  return memory != nullptr && CV_XADD(&memory->refcount, 0) == 1 && CV_XADD(&memory->urefcount, 0) == 0 &&
         memory->currAllocator == cv::Mat::getStdAllocator() &&
         (static_cast<int>(memory->flags) & static_cast<int>(cv::UMatData::USER_ALLOCATED)) == 0 &&
         !output.isSubmatrix();
}

/// Whether the memory of two pictures meets, their gaps between rows included. Matrices of more dimensions, which have
/// no rows, may be asked about too.
inline bool overlap(const cv::Mat& a, const cv::Mat& b) {
  const auto end = [](const cv::Mat& image) -> const uchar* {
    if (image.dims > 2) {
      return image.dataend;
    }
    return image.ptr(image.rows - 1) + static_cast<std::size_t>(image.cols) * image.elemSize();
  };
  return !a.empty() && !b.empty() && a.data < end(b) && b.data < end(a);
}

/// Has `make(cv::Mat&)` write a result into `output` where nobody else sees its pixels, or it has none, so that a
/// caller who keeps his images needs no new memory; any other output is replaced by a fresh image once the result is
/// there. If it throws, an empty output stays empty. `make` must not read the output's pixels.
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

/// Deep copy of `image` in `output`, in its old memory where that fits and is nobody else's. An empty image empties it.
inline void copyInto(const cv::Mat& image, cv::Mat& output) {
  writeInto(output, [&](cv::Mat& out) { image.copyTo(out); });
}

}  // namespace stereo::core
