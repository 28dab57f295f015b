// SPDX-License-Identifier: Apache-2.0
// What everybody has to know of the camera: its two formats.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::model {

/// The larger format: side-by-side frames, pixels.
inline constexpr int kFullWidth = 1856;
inline constexpr int kFullHeight = 800;

/// Whether frames of this size are one of the camera's two formats: the larger one, or half as wide and high.
inline bool isCameraFormat(const cv::Size& frameSize) {
  return frameSize == cv::Size(kFullWidth, kFullHeight) || frameSize == cv::Size(kFullWidth / 2, kFullHeight / 2);
}

}  // namespace stereo::model
