// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <string>

/// Runtime log of one object: progress on standard output, errors on standard error.
///
/// A record is "YYYY-MM-DD hh:mm:ss.uuuuuu [name] " (local time) and the formatted text as it stands, written in one
/// piece and at once. A text without a line end gets none; the next record of the process that goes to the same
/// place then begins with one, so that every record starts on a line of its own.
///
/// Safe to call from any number of threads, on one log or several. Nothing throws.
class SystemLog {
public:
  /// A log at level 1 whose records carry `name`.
  explicit SystemLog(std::string name);

  /// 1 or more: everything is written; 0 or less: errors only.
  void setLogLevel(int level) noexcept;

  /// Writes a progress record; printf-style.
  void runTimeInfo(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
  /// Writes an error record; printf-style.
  void runTimeError(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));

private:
  std::atomic<int> m_level{1};
  std::string m_name;
};
