// SPDX-License-Identifier: Apache-2.0
// Options that name a camera, and opening what they name.
#pragma once

#include <memory>
#include <string>

#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "sources/HostCamera.hpp"
#include "sources/Recorder.hpp"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace stereo::app {

/// Which options a command takes besides those that name the source. The others keep their defaults.
struct SourceUse {
  bool plays = true;        ///< frames are read: --once
  bool scene = true;        ///< for the simulated camera: --still, --faults, --conditions
  bool calibration = true;  ///< --calibration
  bool rectified = false;   ///< --rectified
  bool depth = false;       ///< --depth-mode
  bool matcher = false;     ///< --matcher
  bool position = false;    ///< --position
};

/// Where frames come from and how they are rectified, from the command line. One of simulate (the default), replay,
/// device and settings; settings may also adjust simulate and replay.
struct SourceOptions {
  bool simulate = false;
  std::string replay;
  int device = -1;
  std::string settings;
  std::string calibration;
  std::string frameSize = "1856x800";
  std::string rectifiedSize = "464x400";
  double rate = 30;
  unsigned seed = 1;
  bool still = false;
  std::string faults;      // a script's file or "seed:N"; implies simulate
  std::string conditions;  // as `sim::parseConditions` reads them; imply simulate
  bool once = false;
  int depthMode = 2;
  std::string matcher = "sgm";
  int position = -1;  // negative: from the calibration

  /// Adds the options that the subcommand takes.
  void addTo(CLI::App& command, const SourceUse& use);

  /// Whether the command line names a source. If not, the simulated camera is used.
  bool named() const;
  /// Throws Failure (usage) with the choices unless a source is named. `others`: further choices of the command.
  void requireNamed(const std::string& others = "") const;

  /// The command that the options were added to, which knows which were given; null: all count as given.
  const CLI::App* command = nullptr;
  bool given(const char* option) const;
};

/// A camera that is open and calibrated, but not started.
struct OpenedCamera {
  std::unique_ptr<sources::HostCamera> camera;
  std::string description;  ///< "simulated camera, seed 1"
  bool calibrated = false;
  cv::Size askedSize;  ///< size that a device seemed to accept, for comparison with its frames; may be empty

  /// "sgm" or "bm"
  std::string matcher() const { return camera->algorithm() == 1 ? "bm" : "sgm"; }
};

/// Who observes the camera: at most one, which outlives it.
struct Onlooker {
  RunRecord* record = nullptr;            ///< measure it: opens a `MeasuredCamera`
  sources::Recorder* recorder = nullptr;  ///< record its frames: opens a `RecordingCamera`
};

/// Opens the source that the options name, after naming it on standard error: "source: simulated camera, seed 1".
/// Throws Failure with one line that says what is missing.
///
/// A recording comes with calibration and settings. Its calibration is loaded unless the options name another; its
/// settings apply to all that the command line does not set. It plays with its recorded timing, or at --rate if given.
OpenedCamera openCamera(const SourceOptions& options, const Onlooker& onlooker = {});

/// Adds --device, which stores the node number in `device`.
CLI::Option* addDeviceOption(CLI::App& command, int& device);

/// "1856x800" to a size. Throws Failure (usage) for anything but two numbers from 1 to 32767.
cv::Size parseSize(const std::string& text, const std::string& option);

}  // namespace stereo::app
