// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace stereo::test {

enum class Syntax { yaml, xml, json };

/// A document that OpenCV's storage layer should be able to read, with whatever the syntax has to offer: comments,
/// strings of odd characters, collections within collections in all layouts, several streams, elements in base 64. The
/// same seed makes the same document.
std::string randomDocument(Syntax syntax, unsigned int seed);

/// A copy with a few changes, most of which make it malformed.
std::string changedDocument(const std::string& document, unsigned int seed);

}  // namespace stereo::test
