// SPDX-License-Identifier: Apache-2.0
// Thrown when a recording is over or a signal came.
#pragma once

#include <string>

#include <string.h>

#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

/// No more frames come, but nothing is wrong: a recording played once is over, or a signal asked the program to end.
/// Catch it to make a result of what came so far; otherwise it ends the program like any failure.
class Ended : public Failure {
public:
  /// The recording is over.
  Ended() : Failure(ExitCode::noFrames, "the recording is over, and was too short for a result") {}
  /// The exit code is the one that a shell reports for a program killed by the signal.
  explicit Ended(int signal)
      : Failure(static_cast<ExitCode>(128 + signal),
                std::string("ended by SIG") + sigabbrev_np(signal) + " before there was a result"),
        m_signal(signal) {}

  /// 0: the recording is over.
  int signal() const { return m_signal; }

private:
  int m_signal = 0;
};

}  // namespace stereo::app
