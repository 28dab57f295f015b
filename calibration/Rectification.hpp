// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// The common frame of both eyes: rotations that turn rays of the left [0] and right [1] eye into it. Its x axis runs
/// from the left eye to the right one; z lies half-way between the directions that the eyes look in, as far as x lets
/// it; y points down. A scene point then lies in the same row of both eyes, and farther right in the left one. Throws
/// std::invalid_argument if the eyes coincide or look along the line between them.
std::array<cv::Matx33d, 2> rectify(const Pose& rightFromLeft);

}  // namespace stereo::calibration
