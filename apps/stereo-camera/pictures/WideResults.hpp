// SPDX-License-Identifier: Apache-2.0
// Wide depth of a running camera, its pictures and its files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "WideDepth.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"

namespace stereo::app {

/// Options of wide depth, from the command line.
struct WideOptions {
  std::string size = "464x400";   ///< of the view, pixels
  std::string field = "170x150";  ///< degrees of longitude and latitude
  double nearest = 0.15;          ///< meters
  double farthest = 10.0;         ///< meters
  bool fuse = false;              ///< combine successive frames
  bool selfCalibrate = true;      ///< correct rows that do not match
};

/// Frames to read before the pictures are taken, with `fuse`.
constexpr int fusedFrames = 8;

/// The calibration of a camera that has one and is not started yet: the start scales it.
WideDepthCalibration wideCalibration(StereoCamera& camera);
/// The options as the engine takes them. Throws Failure (usage) for options that cannot be.
WideDepthOptions wideOptions(const WideOptions& options);

/// Range (CV_32FC1, meters) in colors at equal steps of its logarithm, near blue and far red; black where it is 0.
cv::Mat rangeColors(const cv::Mat& range, double nearest, double farthest);
/// Percent of the view's pixels that have a range.
double measuredPercent(const WideDepthImage& image);

/// Measures wide depth from a camera's frames. Used by one thread at a time.
class WideReader {
public:
  /// Takes the calibration of a camera that has one and is not started yet: the start scales it. Throws Failure (usage)
  /// for options that cannot be.
  WideReader(const OpenedCamera& opened, const WideOptions& options);
  /// The same, of a camera that may be started.
  WideReader(WideDepthCalibration calibration, const WideDepthOptions& options);

  /// Reads the eyes of the next frame and measures them. Returns the frame's timestamp, system microseconds, or 0
  /// without a frame. Throws Failure: calibration if it is unusable, noFrames if the frames are no pairs of color
  /// pictures.
  std::int64_t read(StereoCamera& camera);

  /// Of the last frame; empty before.
  const WideDepthImage& image() const { return m_image; }
  /// Null before the first frame.
  const WideDepth* engine() const { return m_engine ? &*m_engine : nullptr; }
  const WideDepthOptions& options() const { return m_options; }

private:
  const WideDepthCalibration m_calibration;
  const WideDepthOptions m_options;
  cv::Mat m_left;
  cv::Mat m_right;
  WideDepthImage m_image;
  std::optional<WideDepth> m_engine;
};

/// Writes the files that `wideFiles` names, from the reader's last frame. Returns the pictures to show, which it does
/// not write. Throws Failure (output).
std::vector<Picture> writeWide(const WideReader& reader, const std::filesystem::path& folder);

/// Names and contents of the files that `writeWide` writes.
std::vector<std::pair<std::string, std::string>> wideFiles();

/// Facts about the last frame: name and value.
std::vector<std::pair<std::string, std::string>> wideFacts(const WideReader& reader);

}  // namespace stereo::app
