// SPDX-License-Identifier: Apache-2.0
// A recording's folder: reading it, and writing its files other than frames and timestamps.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace stereo::sources {

struct CameraSettings;

/// A recording cannot be written. The message is one line, with the remedy if there is one.
class RecordingError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// A folder with raw frames as a device delivered them, and the settings and calibration then in effect.
///
/// - `frames.mkv`: the side-by-side frames, lossless, in a Matroska container
/// - `stamps.csv`: a heading, then a line for each frame: its number from 0, its timestamp in microseconds since the
///   epoch
/// - `calibration.yml`: the calibration before capture started; missing if there was none
/// - `settings.yml`: the settings in effect, which can be loaded like any others
/// - `about.yml`: source of the frames, codec, radius of the image circle, counts
///
/// The timestamps are those that the camera published with the frames. If a recording was cut off, frames or timestamps
/// may be missing at the end; the shorter list counts.
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
    std::uint64_t dropped = 0;  ///< the queue was full
    std::uint64_t unfit = 0;    ///< of another size or type than the first
  };

  /// Writes `settings.yml` with all keys that can be loaded. Throws RecordingError.
  static void writeSettings(const std::filesystem::path& folder, const CameraSettings& settings);
  /// Writes `about.yml`; `source` describes where the frames are from. Throws RecordingError.
  static void writeAbout(const std::filesystem::path& folder, const std::string& source, const std::string& codec,
                         int fisheyeRadius, const Counts& counts);

  /// Whether the path is a folder that holds frames of a recording.
  static bool isAt(const std::filesystem::path& path);

  /// Reads everything except the frames. Throws std::runtime_error with a message of one line if there is no recording
  /// or it is malformed: timestamps that do not rise, numbers out of order, an invalid radius.
  static Recording open(const std::filesystem::path& folder);

  std::filesystem::path frames;
  std::vector<std::int64_t> timestamps;  ///< microseconds since the epoch of the system's clock, rising
  std::filesystem::path calibration;     ///< empty: none
  std::filesystem::path settings;        ///< empty: none
  int fisheyeRadius = -1;                ///< of the image circle, raw pixels; negative: unknown
};

}  // namespace stereo::sources
