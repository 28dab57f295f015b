// SPDX-License-Identifier: Apache-2.0
// Reprojection errors and row errors of an estimate.
#pragma once

#include <optional>
#include <vector>

#include "calibration/BoardGeometry.hpp"
#include "calibration/Solver.hpp"

namespace stereo::calibration {

/// The perspective view that row differences refer to: the camera's default, 464 x 400 pixels over 90 degrees. A pixel
/// in its middle is a quarter of a degree.
inline constexpr double viewFocal = 232.0;
inline constexpr double viewHalfWidth = 232.0;
inline constexpr double viewHalfHeight = 200.0;

/// Rings about the optical axis: [0, 15), [15, 30) ... degrees, the last one open.
inline constexpr double ringDegrees = 15.0;
inline constexpr int ringCount = 7;
/// Ring of an angle off the axis, radians.
int ringOf(double angle);

/// Count, mean, maximum and root mean square of absolute errors.
struct Spread {
  std::size_t count = 0;
  double mean = 0;
  double rms = 0;
  double most = 0;
};
Spread spreadOf(const std::vector<double>& errors);

/// One corner found in both eyes, after rectification.
struct RowError {
  std::size_t view = 0;
  double angle = 0;     ///< off the left eye's rectified axis, radians
  double latitude = 0;  ///< left minus right angle about the baseline, radians; exact over the whole field
  /// Left minus right row of the perspective view, pixels; nothing if either ray leaves the view.
  std::optional<double> rows;
};

/// The errors of an estimate.
struct FitErrors {
  /// [view][eye][corner]: distance between corner and model, pixels; infinite if the model has no pixel.
  std::vector<std::array<std::vector<double>, 2>> reprojection;
  std::vector<RowError> rows;  ///< of all selected corners found in both eyes
};

/// Distances of all corners, selected or not; rows of the corners that are selected in both eyes.
FitErrors fitErrors(const Estimate& estimate, const std::vector<BoardView>& views, const Board& board,
                    const Selection& selection);

/// Row differences between corners of both eyes from the rig alone, without the boards' poses.
std::vector<RowError> rowErrors(const StereoRig& rig, const std::vector<BoardView>& views, const Selection& selection);

/// Distances of one picture's corners in both eyes; with a selection, only of selected ones.
std::vector<double> distances(const FitErrors& errors, std::size_t view, const Selection* selection = nullptr);

}  // namespace stereo::calibration
