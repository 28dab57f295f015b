// SPDX-License-Identifier: Apache-2.0
// Keeps documents away from OpenCV's parsers that they would not survive.
#pragma once

#include <string_view>

#include "StereoCameraExport.hpp"

namespace stereo::core {

/// Maximum nesting depth of a document. Ours have two levels; the parsers use a few kilobytes of stack per level.
constexpr int maxNesting = 100;

/// Whether a YAML, XML or JSON document may be passed to OpenCV's parsers, which some kinds of malformed text crash or
/// hang: they recurse for each level of nesting until the stack overflows; they read past the end of a text that stops
/// inside a tag or contains a zero; they loop forever if a stream begins with a dash, or if base 64 elements have no
/// type. Follows OpenCV 4.6's parser through the document, including comments and strings, and returns false if it
/// cannot reach the end; OpenCV would call such a document malformed if it survived it. Linear in the length.
STEREO_CAMERA_EXPORT bool safeToParse(std::string_view text);

}  // namespace stereo::core
