// SPDX-License-Identifier: Apache-2.0
// Rectifying rotations of both eyes.
#pragma once

#include <array>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// Rotations of the left [0] and right [1] eye's rays into a common frame. Its x axis runs from the left eye to the
/// right one; z is midway between the eyes' axes, made perpendicular to x; y points down. A scene point is then in the
/// same row of both eyes, and farther right in the left one. Throws std::invalid_argument if the eyes coincide or look
/// along the line between them.
std::array<cv::Matx33d, 2> rectify(const Pose& rightFromLeft);

}  // namespace stereo::calibration
