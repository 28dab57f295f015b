// SPDX-License-Identifier: Apache-2.0
// The last minutes of a camera on disk, in bounded space.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "apps/stereo-camera/record/LiveRecording.hpp"

namespace stereo::app {

/// Records without end into a folder: in parts, each a recording of its own, of which the oldest is removed when all
/// together reach the size, or when the disk has too little room. Touches nothing in the folder but parts that a ring
/// made. The host's thread.
class RecordingRing {
public:
  struct Options {
    std::filesystem::path folder;
    std::uintmax_t mostBytes = 2'000'000'000;  ///< of all parts
    double partSeconds = 30;
    sources::Recorder::Options recorder;  ///< its folder is not used
  };
  explicit RecordingRing(Options options);

  /// To be called several times a second. Begins, ends and removes parts as it is time to. `camera`: null while none
  /// runs; then the part is ended, and the next camera gets a new one. Does not throw: what cannot be written is tried
  /// again after five seconds.
  void step(const RecordedCamera* camera, LiveTap& tap);
  /// Ends the part. As the destructor does.
  void end();

  struct Status {
    bool isRecording = false;
    std::uintmax_t bytes = 0;
    std::string error;  ///< why it does not record; empty if all is well
  };
  Status status() const;
  const Options& options() const { return m_options; }

private:
  using Clock = std::chrono::steady_clock;

  void begin(const RecordedCamera& camera, LiveTap& tap);
  void trim();
  std::uintmax_t reserve() const;
  void fail(const std::string& reason);

  const Options m_options;
  std::unique_ptr<LiveRecording> m_part;
  std::unique_ptr<LiveRecording> m_past;  // the part before, while it is written to its end
  Clock::time_point m_began;
  Clock::time_point m_measured;
  Clock::time_point m_retry;       // not before this
  std::uintmax_t m_pastBytes = 0;  // of the parts that are complete
  std::string m_error;
};

}  // namespace stereo::app
