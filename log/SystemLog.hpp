// SPDX-License-Identifier: Apache-2.0
// The log of a camera.
#pragma once

#include <atomic>
#include <string>

/// Runtime log of one object: progress on standard output, errors on standard error.
///
/// A record is "YYYY-MM-DD hh:mm:ss.uuuuuu [name] " (local time) and the formatted text unchanged, written at once in a
/// single write. No line end is added to the text; if it has none, the next record of the process that goes to the same
/// file or terminal begins with one, so that every record starts on its own line.
///
/// Safe to call from any number of threads, on one log or several. Nothing throws.
class [[gnu::visibility("default")]] SystemLog {
public:
  /// A log at level 1. `name` is part of each record.
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
