// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/Views.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace stereo::app {

std::optional<View> viewNamed(std::string_view name) {
  const auto* const found = std::find(viewNames.begin(), viewNames.end(), name);
  return found == viewNames.end() ? std::nullopt : std::optional(static_cast<View>(found - viewNames.begin()));
}

MessageHeader headerOf(const ViewMessage& message, std::uint16_t camera, std::uint32_t number, float ageMs) {
  static_assert(std::endian::native == std::endian::little, "the header's values are copied as they are");
  MessageHeader header{};
  const auto put = [&header](std::size_t offset, auto value) {
    std::memcpy(header.data() + offset, &value, sizeof(value));
  };
  put(0, static_cast<std::uint8_t>(message.isRange ? 2 : 1));
  put(1, static_cast<std::uint8_t>(message.view));
  put(2, camera);
  put(4, number);
  put(8, static_cast<double>(message.timestamp));
  put(16, static_cast<std::uint16_t>(message.size.width));
  put(18, static_cast<std::uint16_t>(message.size.height));
  put(20, message.jpegBytes);
  put(24, ageMs);
  return header;
}

}  // namespace stereo::app
