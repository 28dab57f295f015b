// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

namespace stereo::app {

// What the program says, and where. Any thread.

/// What happens meanwhile: source, progress. Standard error.
std::ostream& progress();

}  // namespace stereo::app
