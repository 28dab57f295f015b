// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// What a calibration file holds beside the calibration.
struct Label {
  int serialNumber = 0;
  int posNumber = 0;
  cv::Size rectFrameSize{464, 400};
};

/// Writes the thirteen keys that the camera loads (docs/keys.md), by way of the camera's own writer: intrinsic
/// matrices scaled from pictures `frameWidth` pixels wide (both eyes) to 1856, the translation in millimetres, the
/// rotations from `rectify`. Replaces the file; YAML, XML or JSON by its extension. Throws std::runtime_error if it
/// cannot be written, or does not load again as it was.
void saveCalibration(const std::string& path, const StereoRig& rig, int frameWidth, const Label& label);

}  // namespace stereo::calibration
