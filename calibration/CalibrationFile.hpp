// SPDX-License-Identifier: Apache-2.0
// Writes a calibration file.
#pragma once

#include <string>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// What a calibration file holds besides the calibration.
struct Label {
  int serialNumber = 0;
  int posNumber = 0;
  cv::Size rectFrameSize{464, 400};
};

/// Writes the thirteen keys that the camera loads (docs/keys.md) with the camera's own writer: intrinsic matrices
/// scaled from pictures `frameWidth` pixels wide (both eyes) to 1856, the translation in millimeters, the rotations
/// from `rectify`. Replaces the file; YAML, XML or JSON by its extension. Throws std::runtime_error if it cannot be
/// written, or loads with other values.
void saveCalibration(const std::string& path, const StereoRig& rig, int frameWidth, const Label& label);

}  // namespace stereo::calibration
