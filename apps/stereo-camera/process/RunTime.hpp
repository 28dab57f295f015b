// SPDX-License-Identifier: Apache-2.0
// How long a command runs.
#pragma once

#include <chrono>

namespace stereo::app {

/// How long a command runs: for a number of seconds, or until a signal asks it to end (Signals.hpp). Made and used by
/// the host's thread.
class RunTime {
public:
  /// `seconds` of 0: no time limit.
  explicit RunTime(double seconds) : m_seconds(seconds) {}

  /// Starts the time at the first call, so that waiting for the first frame doesn't count.
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
};

}  // namespace stereo::app
