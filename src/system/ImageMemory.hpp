// SPDX-License-Identifier: Apache-2.0
// Recycled memory for images that come and go with every frame.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::sys {

// A block that one image releases serves the next image of its size, so that a running camera allocates nothing, and
// touches no fresh page, from frame to frame. No block is kept while no camera exists, and at most `maxKept`
// otherwise. Any thread; nothing here waits.

/// Maximum number of blocks that are kept for later images.
constexpr int maxKept = 16;

/// An empty image that takes its memory from here, no matter which code fills it. Otherwise an image like any other:
/// its headers may be kept and passed on, and may outlive the camera (but not the library, if that is unloaded).
cv::Mat recycledImage();

/// A deep copy in such memory.
cv::Mat recycledCopy(const cv::Mat& image);

/// Every camera holds one for its lifetime. The last one to be destroyed returns the memory to the system.
class ImageMemoryUser {
public:
  ImageMemoryUser();
  ~ImageMemoryUser();
  ImageMemoryUser(const ImageMemoryUser&) = delete;
  ImageMemoryUser& operator=(const ImageMemoryUser&) = delete;
};

}  // namespace stereo::sys
