// SPDX-License-Identifier: Apache-2.0
// Options that name a camera, and opening what they name.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "sources/FrameTap.hpp"
#include "sources/HostCamera.hpp"

namespace stereo::app {

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
  int position = -1;    // negative: from the calibration
  bool atOnce = false;  // the simulated camera begins with its first frame and renders the others meanwhile

  /// Whether the command line names a source. If not, the simulated camera is used.
  bool named() const;
  /// Throws Failure (usage) with the choices unless a source is named. `others`: further choices of the command.
  void requireNamed(const std::string& others = "") const;

  /// Whether the command line has an option, "--rate". A recording's settings give way to those only.
  std::function<bool(const char*)> given = [](const char*) { return true; };
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
  RunRecord* record = nullptr;       ///< measure it: opens a `MeasuredCamera`
  sources::FrameTap* tap = nullptr;  ///< see its frames: opens a `TappedCamera`
};

/// Opens the source that the options name, after naming it on standard error: "source: simulated camera, seed 1".
/// Throws Failure with one line that says what is missing.
///
/// A recording comes with calibration and settings. Its calibration is loaded unless the options name another; its
/// settings apply to all that the command line does not set. It plays with its recorded timing, or at --rate if given.
OpenedCamera openCamera(const SourceOptions& options, const Onlooker& onlooker = {});

/// "1856x800" to a size. Throws Failure (usage) for anything but two numbers from 1 to 32767.
cv::Size parseSize(const std::string& text, const std::string& option);

}  // namespace stereo::app
