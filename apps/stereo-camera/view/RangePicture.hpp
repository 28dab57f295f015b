// SPDX-License-Identifier: Apache-2.0
// Wide depth as it is sent to viewers.
#pragma once

#include <cstdint>
#include <vector>

#include "WideDepth.hpp"
#include "apps/stereo-camera/view/JpegEncoder.hpp"
#include "apps/stereo-camera/view/Views.hpp"

namespace stereo::app {

/// Values of packed range from here on are reasons: this and the number of the `RangeState`.
constexpr std::uint16_t packedState = 65530;
/// The greatest packed range, millimeters; ranges beyond are cut to it.
constexpr std::uint16_t packedFarthest = packedState - 1;

/// Range and state at half the size (rounded down), row by row, little-endian: of each 2 x 2 pixels the nearest range,
/// in whole millimeters, since that is what a robot must not miss; if none was measured, the state of the first.
std::vector<std::uint8_t> packRange(const WideDepthImage& image);

/// The message of `View::range`.
ViewMessage rangeMessage(const WideDepthImage& image, std::int64_t timestamp, JpegEncoder& encoder);

}  // namespace stereo::app
