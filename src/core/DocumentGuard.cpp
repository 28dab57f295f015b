// SPDX-License-Identifier: Apache-2.0
// Keeps documents away from OpenCV's parsers that they would not survive.
#include "DocumentGuard.hpp"

#include "src/core/ParserBuffer.hpp"

namespace stereo::core {

bool safeToParse(std::string_view text) {
  // The parsers rely on the zero that ends a line in memory.
  if (text.find('\0') != std::string_view::npos) {
    return false;
  }
  ParserBuffer buffer(text);
  try {
    if (text.starts_with("%YAML")) {
      followYaml(buffer);
    } else if (text.starts_with("<?xml")) {
      followXml(buffer);
    } else if (text.starts_with("{")) {
      followJson(buffer);
    } else {
      return false;
    }
  } catch (const Unsafe&) {
    return false;
  }
  return true;
}

}  // namespace stereo::core
