// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace stereo::app {

/// Number N of the video device /dev/videoN that is named by this number, by that path, or by a path that leads to it,
/// as those below /dev/v4l do. Throws Failure: usage for anything else, source for a path that is not there.
int deviceNode(const std::string& name);

}  // namespace stereo::app
