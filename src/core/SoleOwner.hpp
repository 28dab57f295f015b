// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// Whether nobody but this header sees the pixels. Other threads drop their headers atomically.
inline bool isSoleOwner(const cv::Mat& image) { return image.u != nullptr && CV_XADD(&image.u->refcount, 0) == 1; }

/// Has `make(cv::Mat&)` write a result into `output` where nobody else sees its pixels, or it has none, so that a
/// caller who keeps his images needs no new memory; any other output is replaced by a fresh image once the result is
/// there. `make` must not read the output's pixels.
template <typename Make>
void writeInto(cv::Mat& output, const Make& make) {
  if (output.data == nullptr || isSoleOwner(output)) {
    make(output);
  } else {
    cv::Mat fresh;
    make(fresh);
    output = fresh;
  }
}

/// Deep copy of `image` in `output`, in its old memory where that fits and is nobody else's. An empty image empties it.
inline void copyInto(const cv::Mat& image, cv::Mat& output) {
  writeInto(output, [&](cv::Mat& out) { image.copyTo(out); });
}

}  // namespace stereo::core
