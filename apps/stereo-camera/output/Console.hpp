// SPDX-License-Identifier: Apache-2.0
// Results on standard output, progress on standard error.
#pragma once

#include <chrono>
#include <ostream>
#include <string>

namespace stereo::app {

// Standard output has the results and nothing else; everything else goes to standard error. Only the host's thread
// writes; the streams may be fetched on any thread.

/// Reserves standard output for results: from here on, descriptor 1, to which the library's log and its stream write,
/// leads to standard error. Call once, before anything is written.
void takeOverStandardOutput();

/// The stream for results. Buffered until flushed; a failed write throws Failure (output). Plain standard output if
/// that was not taken over.
std::ostream& results();

/// Its descriptor.
int resultsDescriptor();

/// The stream for source and progress: standard error, or nothing after `beQuiet`.
std::ostream& progress();

/// Progress of something slow: on a terminal one line, updated in place; elsewhere a line at once and then one every
/// ten seconds. Nothing after `beQuiet`.
class ProgressLine {
public:
  ProgressLine() = default;
  /// Leaves the line as it is, and the cursor below it.
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  /// May be called as often as there is news; limits how often it writes.
  void show(const std::string& text);

private:
  std::chrono::steady_clock::time_point m_next;  // not before this
  bool m_open = false;                           // the cursor is behind the line
};

/// From here on, no log and no progress; errors and results stay.
void beQuiet();

/// Silences warnings of OpenCV, GStreamer and FFmpeg, since the program reports errors in its own words. The
/// environment (OPENCV_LOG_LEVEL, OPENCV_FFMPEG_LOGLEVEL) takes precedence. Call before OpenCV is used.
void silenceLibraries();

}  // namespace stereo::app
