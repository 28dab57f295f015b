// SPDX-License-Identifier: Apache-2.0
// A recording that begins and ends while the camera runs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "apps/stereo-camera/observe/LiveTap.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "sources/HostCamera.hpp"
#include "sources/Recorder.hpp"
#include "sources/Recording.hpp"

namespace stereo::app {

/// What a recording says of its camera.
struct RecordedCamera {
  std::string description;           ///< of the source
  sources::CameraSettings settings;  ///< in effect
  std::string calibration;           ///< content of the file, as before the start; empty: none
};

/// Writes the frames that pass a tap into a folder of its own, from construction until `finish`. The host's thread.
class LiveRecording {
public:
  /// Makes `options.folder`, which must not exist. Throws sources::RecordingError or Failure (output). The tap outlives
  /// the recording.
  LiveRecording(const sources::Recorder::Options& options, const RecordedCamera& camera, LiveTap& tap);
  /// As `finish`, but ignores errors. Leaves no folder if no frame came.
  ~LiveRecording();
  LiveRecording(const LiveRecording&) = delete;
  LiveRecording& operator=(const LiveRecording&) = delete;

  /// Throws sources::RecordingError if something could not be written.
  void check();
  /// Takes no more frames, writes those that wait, and closes the files. Throws as `check`; what was written before
  /// can be replayed. Call once.
  void finish();

  const std::filesystem::path& folder() const { return m_folder; }
  sources::Recorder::Counts counts() const { return m_recorder.counts(); }
  std::uintmax_t bytes() const { return m_recorder.bytes(); }

private:
  void detach();

  const std::filesystem::path m_folder;
  const MadeFolder m_made;  // removes it if nothing is in it
  const std::string m_codec;
  const RecordedCamera m_camera;
  LiveTap& m_tap;
  sources::Recorder m_recorder;
  bool m_isAttached = true;
};

/// "20261123-004501-250": the present, in universal time, as part of a file's name that sorts by time.
std::string timeName();

}  // namespace stereo::app
