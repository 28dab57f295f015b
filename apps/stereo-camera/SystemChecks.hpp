// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Findings.hpp"

namespace stereo::app {

/// Whether the shared-memory key of the camera at `position` is free, or whose it is.
Findings checkSharedMemory(int position);

/// Whether the stream could leave: the encoder element is there and this machine has an address in the receiver's
/// network. Nothing is sent.
Findings checkStream(int lastOctet, int position);

}  // namespace stereo::app
