// SPDX-License-Identifier: Apache-2.0
// How a long-running camera is.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <opencv2/core.hpp>

#include "WideDepth.hpp"
#include "apps/stereo-camera/record/RecordingRing.hpp"
#include "apps/stereo-camera/view/LiveState.hpp"
#include "sources/Recording.hpp"

namespace stereo::app {

/// How a camera is at a moment. Times in microseconds since the epoch of the system's clock.
struct CameraStatus {
  enum class State { waiting, running, ended };

  std::string name;
  std::string source;  ///< "video device 0"
  State state = State::waiting;
  std::int64_t since = 0;  ///< when the state began; without frames, when the last one came
  std::string reason;      ///< why it does not run
  std::uint64_t restarts = 0;
  int position = 0;
  bool calibrated = false;
  cv::Size frame;
  std::uint64_t frames = 0;
  std::uint64_t lost = 0;
  double rate = 0;                       ///< frames a second
  std::int64_t newest = 0;               ///< timestamp of the newest frame; 0: none
  std::map<std::string, double> stages;  ///< milliseconds
  std::uint32_t views = 0;               ///< that it can deliver, bits by `View`
  WideDepthOptions wide;
  std::optional<WideState::Findings> wideFindings;

  struct Recording {
    bool isOn = false;
    std::string folder;
    sources::Recording::Counts counts;
    std::uintmax_t bytes = 0;
    std::string error;
  } recording;

  bool hasRing = false;
  std::string ringFolder;
  std::uintmax_t ringMost = 0;
  RecordingRing::Status ring;

  bool shares = false;
  std::string shareError;
  int streamMode = -1;
  int receiver = 0;
  std::string streamError;
  std::string snapshotFolder;
  std::string snapshotError;
  std::string viewError;  ///< a view that cannot be made any longer

  struct Check {
    enum class State { none, running, done };
    State state = State::none;
    int frames = 0;
    int of = 0;
    std::size_t matches = 0;
    std::optional<double> median;  ///< pixels
    std::optional<bool> fits;
    std::string text;
  } check;
};

}  // namespace stereo::app
