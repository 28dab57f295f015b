// SPDX-License-Identifier: Apache-2.0
// Exit codes, and the exception that carries one.
#pragma once

#include <stdexcept>
#include <string>

namespace stereo::app {

/// Exit codes besides 0, success.
enum class ExitCode : int {
  unexpected = 1,   ///< an error that nothing below describes
  usage = 2,        ///< wrong arguments
  source = 3,       ///< no such device, unreadable recording, unreadable settings
  calibration = 4,  ///< calibration file unreadable, incomplete or malformed
  noFrames = 5,     ///< the source opens but delivers nothing
  output = 6,       ///< a result cannot be written
  problems = 7      ///< found by `doctor` or `check`, or `calibrate` got no good result
};

/// Ends the program with one line that says what went wrong and, if there is one, the remedy.
class Failure : public std::runtime_error {
public:
  Failure(ExitCode code, const std::string& message) : std::runtime_error(message), m_code(code) {}
  ExitCode code() const { return m_code; }

private:
  ExitCode m_code;
};

}  // namespace stereo::app
