// SPDX-License-Identifier: Apache-2.0
// Device node number from what the user typed.
#pragma once

#include <string>

namespace stereo::app {

/// N of /dev/videoN, from the number, that path, or a link to it such as those below /dev/v4l. Throws Failure: usage
/// for anything else, source for a path that does not exist.
int deviceNode(const std::string& name);

}  // namespace stereo::app
