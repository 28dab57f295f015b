// SPDX-License-Identifier: Apache-2.0
// The token that lets a viewer change things.
#pragma once

#include <string>

namespace stereo::app {

/// 32 hexadecimal digits from the system's random numbers. Throws Failure (unexpected) if there are none.
std::string newToken();

/// The token in the file. If there is no file, makes one that only its owner may read, with a new token, and sets
/// `isNew`. Throws Failure (output) if it cannot be read or written, if others may read it, or if it holds anything
/// but a token of at least 16 letters and digits.
std::string tokenFrom(const std::string& file, bool& isNew);

}  // namespace stereo::app
