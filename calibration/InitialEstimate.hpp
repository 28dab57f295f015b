// SPDX-License-Identifier: Apache-2.0
// Initial estimate of one eye's model and the board poses.
#pragma once

#include <optional>
#include <vector>

#include "calibration/BoardGeometry.hpp"
#include "calibration/Solver.hpp"

namespace stereo::calibration {

/// Pose of a board in the eye's frame, from its corners' rays: the plane's homography to the rays (direct linear
/// transform), which also holds for rays at right angles to the axis and beyond. Nothing if a corner has no ray in this
/// model or the corners don't determine a pose.
std::optional<Pose> boardPose(const model::OmniModel& eye, const std::vector<cv::Point2d>& corners, const Board& board);

/// Root mean square reprojection error of the corners, pixels; infinite if the model has no pixel for one.
double misfit(const model::OmniModel& eye, const Pose& boardToEye, const std::vector<cv::Point2d>& corners,
              const Board& board);

/// Initial estimate of one eye: its model and the boards' poses.
struct EyeStart {
  model::OmniModel model;
  std::vector<std::optional<Pose>> boards;  ///< one for each view; nothing if the eye saw none or none fits
  double rms = 0;                           ///< pixels, over the boards' median
};

/// Estimates an eye (0 left, 1 right) without knowledge of its lens. The unified model has many shallow minima, so this
/// tries a grid of mirror parameters and fields of view, rates each by how well flat boards fit, refines the best few
/// and compares them. Nothing if none comes near the corners.
std::optional<EyeStart> initialEye(const std::vector<BoardView>& views, int eye, const Board& board,
                                   const cv::Size& eyeSize);

}  // namespace stereo::calibration
