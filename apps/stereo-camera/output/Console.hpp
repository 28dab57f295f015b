// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <ostream>
#include <string>

namespace stereo::app {

// What the program says, and where: results on standard output and nothing else, what happens meanwhile on standard
// error. Written by the host's thread; anything may be asked for on any thread.

/// Keeps standard output for results: descriptor 1, to which the library's log and its stream write, leads to standard
/// error from here on. Once, before anything is written.
void takeOverStandardOutput();

/// What was asked for. Buffered until it is flushed; a write that fails throws Failure (output). Standard output itself
/// where that was not taken over.
std::ostream& results();

/// The descriptor of the same.
int resultsDescriptor();

/// What happens meanwhile: source, progress. Standard error, or nothing.
std::ostream& progress();

/// How far something has come that takes its time: one line on a terminal, brought up to date in place; elsewhere a
/// line at once and then one every ten seconds. Nothing after `beQuiet`.
class ProgressLine {
public:
  ProgressLine() = default;
  /// Leaves the line as it is, and the cursor below it.
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  /// May be called as often as there is news; says no more than can be read.
  void show(const std::string& text);

private:
  std::chrono::steady_clock::time_point m_next;  // not before this
  bool m_open = false;                           // the cursor stands behind the line
};

/// No log and no progress from here on; errors and results stay.
void beQuiet();

/// Keeps OpenCV, GStreamer and FFmpeg from writing warnings above an error that the program tells in its own words.
/// What the environment says of it (OPENCV_LOG_LEVEL, OPENCV_FFMPEG_LOGLEVEL) counts instead. Before OpenCV is used.
void silenceLibraries();

}  // namespace stereo::app
