// SPDX-License-Identifier: Apache-2.0
// Runs a probe that may block in a process of its own, with time limits.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace stereo::app {

/// The line that a probe prints once its libraries are loaded, before it opens the device.
inline const char* const probeBegan = "began";

/// How a probe answered.
struct ProbeAnswer {
  enum class How {
    answered,
    keptWaiting,   ///< began, and was killed when its time was over
    endedWithout,  ///< began, and ended by itself without an answer
    neverBegan,    ///< could not be started, or ended or was killed before it began
  };
  How how = How::neverBegan;
  std::string line;  ///< if it answered: "frame ..." or "fails ..."
};

/// Runs `program` (a path; `arguments` begin with its name) in another process and reads its standard output: the line
/// `probeBegan`, then the answer, which begins with "frame " or "fails ". Other lines, such as OpenCV's log, are
/// ignored; standard error is not shown. The process has `toBegin` until the first line, and from there `toAnswer`
/// until it ends by itself, so that it can close its device; then it is killed. Blocks for at most both, plus the time
/// that the kernel takes to end it.
ProbeAnswer askProcess(const std::string& program, std::vector<std::string> arguments,
                       std::chrono::milliseconds toBegin, std::chrono::milliseconds toAnswer);

}  // namespace stereo::app
