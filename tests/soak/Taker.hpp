// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Shared.hpp"

namespace stereo::soak {

/// The process that takes images from the camera's segment by the handshake and checks each to the byte, whatever
/// cameras come and go under that key. Runs until it is killed, or until the process that started it is gone; returns,
/// with the reason in the shared counters, only if something is wrong.
void takeImages(const Shared& shared, int key);

}  // namespace stereo::soak
