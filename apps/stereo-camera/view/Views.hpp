// SPDX-License-Identifier: Apache-2.0
// The views that the server offers, and the messages that carry their pictures.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::app {

/// The numbers are those of the protocol.
enum class View : std::uint8_t { rawLeft, rawRight, left, right, lonLatLeft, lonLatRight, range, rangeColor };

/// In the order of `View`.
constexpr std::array<std::string_view, 8> viewNames = {"raw-left",    "raw-right",    "left",  "right",
                                                       "lonlat-left", "lonlat-right", "range", "range-color"};
constexpr std::size_t viewCount = viewNames.size();

std::optional<View> viewNamed(std::string_view name);

/// A picture ready to be sent. Shared by all who receive it; never changed.
struct ViewMessage {
  View view = View::rawLeft;
  /// Whether the payload is range instead of a JPEG: two bytes a pixel as `packRange` makes them, then a JPEG of the
  /// left eye in the same geometry.
  bool isRange = false;
  bool isFull = false;          ///< in the camera's own size, for a single picture
  std::int64_t timestamp = 0;   ///< of the frame, system microseconds
  cv::Size size;                ///< pixels
  std::uint32_t jpegBytes = 0;  ///< of the JPEG at the end, for range
  std::vector<std::uint8_t> payload;
};

/// What goes ahead of the payload: kind, view, index of the camera, number, timestamp (double, microseconds), width,
/// height, bytes of the JPEG, age in milliseconds (float), four bytes of zero; all little-endian.
using MessageHeader = std::array<std::uint8_t, 32>;
MessageHeader headerOf(const ViewMessage& message, std::uint16_t camera, std::uint32_t number, float ageMs);

}  // namespace stereo::app
