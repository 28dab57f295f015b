// SPDX-License-Identifier: Apache-2.0
// A recording: what its folder holds, reading it, and writing what stands beside the frames.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace stereo::sources {

struct CameraSettings;

/// A recording that cannot be written. One line, with the remedy where there is one.
class RecordingError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// A folder with raw frames as a device delivered them, and what was in effect meanwhile.
///
/// - `frames.mkv`: the side-by-side frames, lossless, in a Matroska container
/// - `timestamps.csv`: a heading, then a line for each frame: its number from 0, its timestamp in microseconds since
/// the epoch
/// - `calibration.yml`: the calibration as it was before capture started; not there if there was none
/// - `settings.yml`: the settings in effect, to be loaded like any others
/// - `about.yml`: where the frames are from, codec, radius of the image circle, counts
///
/// The timestamps are those that the camera handed out with the frames. A recording that was cut off has fewer frames
/// or timestamps than the other; the shorter one counts.
struct Recording {
  static constexpr const char* framesFile = "frames.mkv";
  static constexpr const char* timestampsFile = "stamps.csv";
  static constexpr const char* calibrationFile = "calibration.yml";
  static constexpr const char* settingsFile = "settings.yml";
  static constexpr const char* aboutFile = "about.yml";
  static constexpr std::array files{framesFile, timestampsFile, calibrationFile, settingsFile, aboutFile};
  static constexpr const char* timestampsHeading = "frame,microseconds";

  /// What became of the frames that were published.
  struct Counts {
    std::uint64_t written = 0;
    std::uint64_t dropped = 0;  ///< no room in the queue
    std::uint64_t unfit = 0;    ///< of another size or type than the first
  };

  /// Writes `settings.yml` with all keys that can be loaded. Throws RecordingError.
  static void writeSettings(const std::filesystem::path& folder, const CameraSettings& settings);
  /// Writes `about.yml`; `source` says in words where the frames are from. Throws RecordingError.
  static void writeAbout(const std::filesystem::path& folder, const std::string& source, const std::string& codec,
                         int fisheyeRadius, const Counts& counts);

  /// Whether the path is a folder that holds frames of a recording.
  static bool isAt(const std::filesystem::path& path);

  /// Reads all but the frames. Throws std::runtime_error, with a message of one line, if there is no recording or what
  /// it says makes no sense: timestamps that do not rise, numbers out of order, a radius that is no number.
  static Recording open(const std::filesystem::path& folder);

  std::filesystem::path frames;
  std::vector<std::int64_t> timestamps;  ///< microseconds since the epoch of the system's clock, rising
  std::filesystem::path calibration;     ///< empty: none
  std::filesystem::path settings;        ///< empty: none
  int fisheyeRadius = -1;                ///< of the image circle, raw pixels; negative: not told
};

}  // namespace stereo::sources
