// SPDX-License-Identifier: Apache-2.0
// Doctor's checks of shared memory and the network stream.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/doctor/Findings.hpp"

namespace stereo::app {

/// Checks that the shared-memory key of the camera at `position` is free, and if not, who holds it.
Findings checkSharedMemory(int position);

/// The segment at the shared-memory key of the camera at a position.
struct SegmentHolder {
  int key = 0;
  bool exists = false;
  bool isOurs = false;  ///< we may inspect it; the rest is set only then
  std::size_t bytes = 0;
  std::size_t users = 0;  ///< attachments
  bool isAlive = false;   ///< the process that made it still runs
  std::string maker;      ///< "process 123 (stereo-camera)"
};
SegmentHolder segmentHolder(int position);
/// Marks the segment of a position for removal if this process made it: for a process that has to end at once.
void removeOwnSegment(int position);
/// Throws Failure if a camera at this position cannot share raw frames of this size, for which it would end the
/// process.
void requireSegment(cv::Size frame, int position);

/// The GStreamer elements that the stream needs and that are not installed. Makes no pipeline, so sends nothing.
std::vector<std::string> missingStreamElements();
/// How to install one of them.
std::string streamRemedy(const std::string& element);

/// Checks that the stream could be sent: its elements are installed and this machine has an address in the receiver's
/// network. Sends nothing.
Findings checkStream(int lastOctet, int position);

}  // namespace stereo::app
