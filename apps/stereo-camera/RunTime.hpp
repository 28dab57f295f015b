// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include <signal.h>

namespace stereo::app {

/// How long a subcommand goes on: for a number of seconds, or until the user ends it by Ctrl-C (SIGINT) or SIGTERM.
///
/// The first such signal only sets a flag, so that the camera is stopped in order; the second ends the process at once,
/// as it would without this class. A read that blocks is not woken by the signal: it ends with the next frame, or when
/// the watch loses patience.
///
/// One at a time in a process, since signal handlers belong to the process. Made and used by the host's thread.
class RunTime {
public:
  /// Takes over both signals. `seconds` of 0: no end of its own.
  explicit RunTime(double seconds);
  /// Gives the signals back to whoever had them.
  ~RunTime();
  RunTime(const RunTime&) = delete;
  RunTime& operator=(const RunTime&) = delete;

  /// The time counts from the first call on: what a camera takes to deliver its first frame is not part of it.
  void begin();
  /// Whether the time has passed or a signal came.
  bool over() const;
  /// Seconds since `begin`; 0 before it.
  double elapsed() const;

private:
  using Clock = std::chrono::steady_clock;

  const double m_seconds;
  bool m_begun = false;
  Clock::time_point m_start;
  struct sigaction m_former[2];
};

}  // namespace stereo::app
