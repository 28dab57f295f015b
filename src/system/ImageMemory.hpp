// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace stereo::sys {

/// Memory for images that come and go with every frame. What one image gave back serves the next one of its size, so
/// that the images of a running camera allocate nothing, and touch no fresh page, from frame to frame.
///
/// Nothing is kept back while no camera exists, and at most `kMaxKept` blocks otherwise. Any thread; nobody waits.

/// Most blocks kept for images to come.
constexpr int kMaxKept = 16;

/// An empty image that will take its memory from here, whoever fills it. Otherwise an image like any other: headers of
/// it may be kept and handed on, and may outlive the camera (not the library, where that is unloaded).
cv::Mat recycledImage();

/// Deep copy in such memory.
cv::Mat recycledCopy(const cv::Mat& image);

/// To be held by every camera as long as it lives. The last one to go gives the memory back to the system.
class ImageMemoryUser {
public:
  ImageMemoryUser();
  ~ImageMemoryUser();
  ImageMemoryUser(const ImageMemoryUser&) = delete;
  ImageMemoryUser& operator=(const ImageMemoryUser&) = delete;
};

}  // namespace stereo::sys
