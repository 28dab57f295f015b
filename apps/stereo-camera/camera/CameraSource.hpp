// SPDX-License-Identifier: Apache-2.0
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

/// Which options a command has a use for, beside those that name the source. A command without one of them goes by its
/// default.
struct SourceUse {
  bool plays = true;        ///< frames are read: --once
  bool scene = true;        ///< of the simulated camera: --still, --faults
  bool calibration = true;  ///< --calibration
  bool rectified = false;   ///< --rectified
  bool depth = false;       ///< --depth-mode
  bool matcher = false;     ///< --matcher
  bool position = false;    ///< --position
};

/// Where frames come from and how they are rectified, as the command line tells. One of simulate (the default), replay,
/// device and settings; settings may also go with simulate and replay, and then only adjust them.
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
  std::string faults;  // a script's file or "seed:N"; implies simulate
  bool once = false;
  int depthMode = 2;
  std::string matcher = "sgm";
  int position = -1;  // negative: as the calibration says

  /// Adds the options that the subcommand has a use for.
  void addTo(CLI::App& command, const SourceUse& use);

  /// Whether the command line names a source; the simulated camera stands in otherwise.
  bool named() const;
  /// Throws Failure (usage) with the choices unless a source is named. `others`: what the command takes beside them.
  void requireNamed(const std::string& others = "") const;

  /// The command that they were added to, which knows which of them were given; none: all count as given.
  const CLI::App* command = nullptr;
  bool given(const char* option) const;
};

/// A camera that was opened and calibrated, not yet started.
struct OpenedCamera {
  std::unique_ptr<sources::HostCamera> camera;
  std::string description;  ///< "simulated camera, seed 1"
  bool calibrated = false;
  cv::Size askedSize;  ///< frame size a device seemed to take, to be compared with its frames; may be empty

  /// Of the camera: "sgm" or "bm".
  std::string matcher() const { return camera->algorithm() == 1 ? "bm" : "sgm"; }
};

/// Who looks on while a camera works, at most one of them, and then outlives it.
struct Onlooker {
  RunRecord* record = nullptr;  ///< it is measured: a `MeasuredCamera`, a simulated one with its frames rendered
  sources::Recorder* recorder = nullptr;  ///< its frames are recorded: a `RecordingCamera`
};

/// Opens what the options name, and says first on standard error what that is, "source: simulated camera, seed 1".
/// Throws Failure with one line that says what is missing.
///
/// A recording brings its calibration and settings: the one is loaded unless the options name another, the others stand
/// in for all that was not given on the command line. It is played as it was recorded, or at the rate that was given.
OpenedCamera openCamera(const SourceOptions& options, const Onlooker& onlooker = {});

/// Adds --device, whose number it leaves in `device`.
CLI::Option* addDeviceOption(CLI::App& command, int& device);

/// "1856x800" to a size. Throws Failure (usage) for anything else than two numbers from 1 to 32767.
cv::Size parseSize(const std::string& text, const std::string& option);

}  // namespace stereo::app
