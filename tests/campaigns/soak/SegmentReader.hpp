// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "tests/campaigns/soak/SharedCounters.hpp"

namespace stereo::soak {

/// The process that takes images from the camera's segment by the handshake and checks each to the byte, whatever
/// cameras come and go under that key. Runs until it is killed or no longer wanted, which it looks at before each look
/// at the segment; returns before only if something is wrong, with the reason in the shared counters.
void takeImages(const SharedCounters& shared, int key, const std::function<bool()>& isWanted);

}  // namespace stereo::soak
