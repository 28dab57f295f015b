// SPDX-License-Identifier: Apache-2.0
// Bundle adjustment of both eyes, their relative pose and the boards.
#pragma once

#include <vector>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// Which corners are used: [view][eye][corner]. Empty for an eye that is not used.
using Selection = std::vector<std::array<std::vector<char>, 2>>;

/// All corners found.
Selection allCorners(const std::vector<BoardView>& views);

/// The unknowns: the rig, the board's pose in each view (in the frame of the left eye) and how it is bent.
struct Estimate {
  StereoRig rig;
  std::vector<Pose> boards;  ///< one for each view
  cv::Vec3d sags;            ///< of the board, millimeters: see `Board`
};

struct SolverOptions {
  double lossScale = 1.0;        ///< pixels, of Cauchy's loss: corners farther off lose influence
  int maxIterations = 200;       ///< of Levenberg-Marquardt
  bool fixedCamera = false;      ///< only the boards' poses change, not their shape
  bool fixedDistortion = false;  ///< k1, k2, p1, p2 are fixed
  bool flatBoard = false;        ///< the sags are fixed
};

struct SolverResult {
  bool usable = false;     ///< false: the initial estimate had no pixel for a corner; nothing was changed
  bool converged = false;  ///< within `maxIterations`
  double cost = 0;         ///< half the sum of the robust squares, square pixels
};

/// Refines both eyes, their relative pose and all boards together: minimizes the reprojection error of the selected
/// corners with a robust loss. Weak priors, each weighing about one corner, keep distortion and sags small where the
/// corners do not determine them. Views without a selected corner and eyes that no view uses do not change. Single
/// thread, deterministic.
SolverResult solve(Estimate& estimate, const std::vector<BoardView>& views, const Board& board,
                   const Selection& selection, const SolverOptions& options);

}  // namespace stereo::calibration
