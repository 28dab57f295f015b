// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "apps/stereo-camera/doctor/Findings.hpp"

namespace stereo::app {

/// Whether the shared-memory key of the camera at `position` is free, or whose it is.
Findings checkSharedMemory(int position);

/// What there is under the shared-memory key of the camera at a position.
struct SegmentHolder {
  int key = 0;
  bool exists = false;  ///< what follows is about it
  bool isOurs = false;  ///< it may be looked at
  std::size_t bytes = 0;
  std::size_t users = 0;  ///< how often it is attached
  bool isAlive = false;   ///< who made it is still there
  std::string maker;      ///< "process 123 (stereo-camera)"
};
SegmentHolder segmentHolder(int position);

/// The GStreamer elements that the stream takes and that are not there. Makes no pipeline, and so sends nothing.
std::vector<std::string> missingStreamElements();
/// Where to get one of them.
std::string streamRemedy(const std::string& element);

/// Whether the stream could leave: the encoder element is there and this machine has an address in the receiver's
/// network. Nothing is sent.
Findings checkStream(int lastOctet, int position);

}  // namespace stereo::app
