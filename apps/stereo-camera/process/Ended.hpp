// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <string.h>

#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

/// Nothing more comes, and nothing is wrong: a recording that is played once is over, or a signal asks for the
/// program's end. Whoever can make a result of what came until then catches it; otherwise the program ends with it as
/// with any failure.
class Ended : public Failure {
public:
  /// The recording is over.
  Ended() : Failure(ExitCode::noFrames, "the recording is over, and was too short for a result") {}
  /// The exit code is that which a shell gives a program that was killed by the signal.
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
