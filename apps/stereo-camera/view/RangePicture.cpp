// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/RangePicture.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace stereo::app {

std::vector<std::uint8_t> packRange(const WideDepthImage& image) {
  const cv::Size size = image.range.size() / 2;
  std::vector<std::uint8_t> packed;
  packed.reserve(2 * static_cast<std::size_t>(size.area()));
  for (int row = 0; row < size.height; ++row) {
    const auto* const upper = image.range.ptr<float>(2 * row);
    const auto* const lower = image.range.ptr<float>(2 * row + 1);
    const auto* const state = image.state.ptr<std::uint8_t>(2 * row);
    for (int col = 0; col < size.width; ++col) {
      float nearest = 0;
      for (const float range : {upper[2 * col], upper[2 * col + 1], lower[2 * col], lower[2 * col + 1]}) {
        nearest = range > 0 && (nearest <= 0 || range < nearest) ? range : nearest;
      }
      const auto value = nearest > 0
                             ? static_cast<std::uint16_t>(std::min(std::lround(1000.0 * nearest), long{packedFarthest}))
                             : static_cast<std::uint16_t>(packedState + state[2 * col]);
      packed.push_back(static_cast<std::uint8_t>(value & 255));
      packed.push_back(static_cast<std::uint8_t>(value >> 8));
    }
  }
  return packed;
}

ViewMessage rangeMessage(const WideDepthImage& image, std::int64_t timestamp, JpegEncoder& encoder) {
  ViewMessage message;
  message.view = View::range;
  message.isRange = true;
  message.timestamp = timestamp;
  message.size = image.range.size() / 2;
  message.payload = packRange(image);
  cv::Mat view;
  cv::resize(image.view, view, message.size, 0, 0, cv::INTER_AREA);
  message.jpegBytes = encoder.append(view, message.payload);
  return message;
}

}  // namespace stereo::app
