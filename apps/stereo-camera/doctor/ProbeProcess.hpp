// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace stereo::app {

/// The line with which a probe says that its libraries are loaded and that it turns to the device.
inline const char* const probeBegan = "began";

/// How a probe answered.
struct ProbeAnswer {
  enum class How {
    answered,
    keptWaiting,   ///< it had begun, and was killed when its time was over
    endedWithout,  ///< it had begun, and ended by itself
    neverBegan,    ///< it could not be started, or ended or was killed before it had begun
  };
  How how = How::neverBegan;
  std::string line;  ///< where it answered: "frame ..." or "fails ..."
};

/// Runs `program` (a path; `arguments` begin with its name) as another process and reads its standard output: the line
/// `probeBegan`, then one that begins with "frame " or "fails ", the answer. Other lines, such as OpenCV's log, count
/// for nothing; its standard error is not shown. It has `toBegin` until the first line and from there `toAnswer` until
/// it has ended by itself, as it does to close its device in order; then it is killed. Blocks for at most both, and for
/// as long as the kernel takes to end it.
ProbeAnswer askProcess(const std::string& program, std::vector<std::string> arguments,
                       std::chrono::milliseconds toBegin, std::chrono::milliseconds toAnswer);

}  // namespace stereo::app
