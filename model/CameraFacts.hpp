// SPDX-License-Identifier: Apache-2.0
// Numbers of the camera that several parts of the project share.
#pragma once

#include <cstddef>
#include <cstdint>

#include <opencv2/core.hpp>

namespace stereo::model {

/// Raw frames are side by side, left eye on the left, and come in two sizes, pixels. The calibration's intrinsic
/// matrices are for the full width.
inline constexpr int fullFrameWidth = 1856;
inline constexpr int fullFrameHeight = 800;
inline constexpr int halfFrameWidth = 928;
inline constexpr int halfFrameHeight = 400;

inline cv::Size fullFrameSize() { return {fullFrameWidth, fullFrameHeight}; }
inline cv::Size halfFrameSize() { return {halfFrameWidth, halfFrameHeight}; }
inline bool isFrameSize(cv::Size size) { return size == fullFrameSize() || size == halfFrameSize(); }

/// Reads of the device whose frames the capture worker discards at its start.
inline constexpr int warmUpReads = 10;

/// A device node that no back end knows: a camera on it finds no device, and OpenCV reports nothing.
inline constexpr int noDevice = 9900;

/// Key of the shared-memory segment and UDP port of the stream for the camera at position 0; add n for position n.
inline constexpr int firstSegmentKey = 9000;
inline constexpr int firstStreamPort = 9200;

/// A segment begins with a 32-bit status word.
inline constexpr std::size_t segmentHeaderBytes = sizeof(std::int32_t);

/// Bytes of a segment, which holds one eye of a raw frame: (W / 2) * H * 3 + 4, in wrapping 32-bit signed arithmetic.
/// No segment can be made of a size that wrapped.
inline std::size_t segmentBytes(cv::Size rawFrame) {
  const auto half = static_cast<std::uint32_t>(rawFrame.width / 2);
  const auto height = static_cast<std::uint32_t>(rawFrame.height);
  return static_cast<std::size_t>(
      static_cast<std::int32_t>(half * height * 3U + static_cast<std::uint32_t>(segmentHeaderBytes)));
}

}  // namespace stereo::model
