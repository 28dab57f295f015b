// SPDX-License-Identifier: Apache-2.0
// Reads that end on a signal, after a timeout, or at once if no result can ever come.
#pragma once

#include <chrono>
#include <optional>

#include "ReadLimit.hpp"
#include "StereoCamera.hpp"
#include "python/Interpreter.hpp"

namespace stereo::python {

/// What a read waits for.
enum class Awaited { frame, disparity };

/// One read of a camera on the calling thread, which holds the interpreter lock before and after.
class LimitedRead {
public:
  /// `timeout` in seconds, None for none. Raises TypeError for anything but a number, ValueError for one below 0.
  LimitedRead(StereoCamera& camera, Awaited awaited, const py::object& timeout);

  /// Runs `read` without the interpreter lock and returns its result. Raises what a signal's handler raised,
  /// TimeoutError, or RuntimeError if no result can ever come and there is no timeout.
  template <typename Read>
  bool run(const Read& read) {
    bool answer = false;
    {
      const Released released;
      const ReadLimit limit([this, outer = ReadLimit::current()] { return mayGoOn(outer); });
      answer = read();
    }
    raiseWhatEndedIt(answer);
    return answer;
  }

private:
  using Clock = std::chrono::steady_clock;

  bool mayGoOn(ReadLimit* outer);
  const char* whyNobodyAnswers();
  void raiseWhatEndedIt(bool answer);

  StereoCamera& m_camera;
  const Awaited m_awaited;
  std::optional<Clock::time_point> m_end;
  bool m_isFirst = true;
  bool m_isLate = false;
  unsigned m_stopsBefore;
  const char* m_nobody = nullptr;
  PendingError m_error;  // raised by a signal's handler
};

}  // namespace stereo::python
