// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace stereo::core {

/// Deepest nesting that a document may have. Ours have two levels; the parsers use a few kilobytes of stack a level.
constexpr int maxNesting = 100;

/// Whether a YAML, XML or JSON document may be handed to OpenCV's parsers, which take some kinds of malformed text
/// badly: they call themselves for each level of nesting, until the stack ends; they run past the end of a text that
/// stops inside a tag or holds a zero; they go on for ever where a stream begins with a dash, or elements in base 64
/// have no type. Follows OpenCV 4.6's parser through the document, comments and strings included, and returns false
/// for what it does not get to the end of, which OpenCV would call malformed if it survived it. Linear in the length.
bool safeToParse(std::string_view text);

}  // namespace stereo::core
