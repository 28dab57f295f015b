// SPDX-License-Identifier: Apache-2.0
// Interface of what sees the frames of a camera pass by.
#pragma once

#include <chrono>

#include <opencv2/core.hpp>

namespace stereo::sources {

/// Sees the frames that a camera's device delivers, on the thread that reads the device: one thread at a time, which
/// must not be held up.
class FrameTap {
public:
  virtual ~FrameTap() = default;

  /// A frame was read. Its pixels are the device's and may change afterward.
  virtual void read(const cv::Mat& frame) = 0;
  /// `timestamp` of the frame published last. If it differs from the last call's, the frame read last was published
  /// with it, otherwise that was discarded.
  virtual void published(std::chrono::microseconds timestamp) = 0;

protected:
  FrameTap() = default;
  FrameTap(const FrameTap&) = default;
  FrameTap& operator=(const FrameTap&) = default;
};

}  // namespace stereo::sources
