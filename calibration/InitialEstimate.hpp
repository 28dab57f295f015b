// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include "calibration/BoardGeometry.hpp"
#include "calibration/Solver.hpp"

namespace stereo::calibration {

/// Where a board stands before the eye, from what its corners' rays would have to be: the plane's homography to the
/// rays (direct linear transform), which also holds for rays at right angles to the axis and beyond. Nothing if a
/// corner has no ray in this model or the corners don't determine a pose.
std::optional<Pose> boardPose(const model::OmniModel& eye, const std::vector<cv::Point2d>& corners, const Board& board);

/// Root of the mean squared distance in pixels between corners and where the model puts them; infinite where it cannot.
double misfit(const model::OmniModel& eye, const Pose& boardToEye, const std::vector<cv::Point2d>& corners,
              const Board& board);

/// One eye by itself, for a start: its model and where it saw the boards.
struct EyeStart {
  model::OmniModel model;
  std::vector<std::optional<Pose>> boards;  ///< one a view; nothing where the eye saw none or it made no sense
  double rms = 0;                           ///< pixels, over the boards' median
};

/// Finds an eye (0 left, 1 right) without knowing anything of its lens. The unified model has many shallow minima, so a
/// grid of mirror parameters and fields of view is tried, each is judged by how well the boards come out flat, and the
/// best few are improved and compared. Nothing if none comes near the corners.
std::optional<EyeStart> initialEye(const std::vector<BoardView>& views, int eye, const Board& board,
                                   const cv::Size& eyeSize);

}  // namespace stereo::calibration
