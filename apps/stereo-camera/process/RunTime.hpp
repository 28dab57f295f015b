// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace stereo::app {

/// How long a subcommand goes on: for a number of seconds, or until a signal asks for its end (Signals.hpp). Made and
/// used by the host's thread.
class RunTime {
public:
  /// `seconds` of 0: no end of its own.
  explicit RunTime(double seconds) : m_seconds(seconds) {}

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
};

}  // namespace stereo::app
