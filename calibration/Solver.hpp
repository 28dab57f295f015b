// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// Which corners count: [view][eye][corner]. Empty for an eye that takes no part.
using Selection = std::vector<std::array<std::vector<char>, 2>>;

/// Every corner that was found.
Selection allCorners(const std::vector<BoardView>& views);

/// What is looked for: the rig, where the board stood in each view (in the frame of the left eye) and how it is bent.
struct Estimate {
  StereoRig rig;
  std::vector<Pose> boards;  ///< one a view
  cv::Vec3d sags;            ///< of the board, millimetres: see `Board`
};

struct SolverOptions {
  double lossScale = 1.0;        ///< pixels: beyond, a corner's pull stops growing (Cauchy's loss)
  int maxIterations = 200;       ///< of Levenberg-Marquardt
  bool fixedCamera = false;      ///< only the boards move; their shape is kept too
  bool fixedDistortion = false;  ///< k1, k2, p1, p2 stay
  bool flatBoard = false;        ///< the sags stay
};

struct SolverResult {
  bool usable = false;     ///< false: the start had a corner that the model cannot show; nothing was changed
  bool converged = false;  ///< the steps became too small to matter before they were used up
  double cost = 0;         ///< half the sum of the robust squares, square pixels
};

/// Improves both eyes, the motion between them and all boards together, so that the selected corners come out where
/// they were found: least squares over all of them, with a robust loss. Distortion and sags are drawn towards zero, as
/// weakly as a single corner would: where the corners leave them open, they stay small. Views without a selected corner
/// stay as they are; an eye that no view sees stays, too. Single thread, and the same result every time.
SolverResult solve(Estimate& estimate, const std::vector<BoardView>& views, const Board& board,
                   const Selection& selection, const SolverOptions& options);

}  // namespace stereo::calibration
