// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/record/Recorder.hpp"

namespace stereo::app {

/// The settings that a camera works with, in the units of the settings file.
struct SettingsInEffect {
  int logLevel = 1;
  int deviceNode = 0;
  cv::Size frameSize;      ///< raw, side by side, pixels
  cv::Size rectifiedSize;  ///< one eye, pixels
  int frameRate = 30;
  int threshold = 120;
  int algorithm = 0;
  int ipLastSegment = 15;
  double hFov = 90.0;  ///< degrees
  double transrate = 0.0;
  int transmode = -1;
  int depthmode = 1;
  int fisheyeRadius = 0;  ///< raw pixels; no key of the settings file
};

/// A camera that tells the settings that it works with. Host's thread.
class TellsSettings {
public:
  virtual ~TellsSettings() = default;
  virtual SettingsInEffect settingsInEffect() const = 0;
};

/// Writes a settings file with all keys that can be loaded. Throws Failure (output).
void writeSettings(const std::filesystem::path& path, const SettingsInEffect& settings);

/// Writes what a recording tells of itself. Throws Failure (output).
void writeAbout(const std::filesystem::path& path, const std::string& description, const std::string& codec,
                const SettingsInEffect& settings, const Recorder::Counts& counts);

}  // namespace stereo::app
