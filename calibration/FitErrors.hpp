// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include "calibration/BoardGeometry.hpp"
#include "calibration/Solver.hpp"

namespace stereo::calibration {

/// The perspective view that row differences are told in: the camera's default, 464 x 400 pixels over 90 degrees. One
/// pixel in its middle is a quarter of a degree.
inline constexpr double viewFocal = 232.0;
inline constexpr double viewHalfWidth = 232.0;
inline constexpr double viewHalfHeight = 200.0;

/// Rings about the optical axis: [0, 15), [15, 30) ... degrees, the last one open.
inline constexpr double ringDegrees = 15.0;
inline constexpr int ringCount = 7;
/// Ring of an angle off the axis, radians.
int ringOf(double angle);

/// Mean and greatest of some absolute errors, and their root mean square.
struct Spread {
  std::size_t count = 0;
  double mean = 0;
  double rms = 0;
  double most = 0;
};
Spread spreadOf(const std::vector<double>& errors);

/// One corner that both eyes found, after rectification.
struct RowError {
  std::size_t view = 0;
  double angle = 0;     ///< off the left eye's rectified axis, radians
  double latitude = 0;  ///< left minus right, of the planes through the baseline, radians; exact over the whole field
  /// Left minus right row of the perspective view, pixels; nothing if either ray leaves the view.
  std::optional<double> rows;
};

/// What an estimate leaves unexplained.
struct FitErrors {
  /// [view][eye][corner]: distance in pixels between corner and model, infinite where the model has no pixel.
  std::vector<std::array<std::vector<double>, 2>> reprojection;
  std::vector<RowError> rows;  ///< of all selected corners that both eyes found
};

/// Distances of all corners, selected or not; rows of the corners that are selected in both eyes.
FitErrors fitErrors(const Estimate& estimate, const std::vector<BoardView>& views, const Board& board,
                    const Selection& selection);

/// Row differences between corners of both eyes by the rig alone, the boards' poses playing no part.
std::vector<RowError> rowErrors(const StereoRig& rig, const std::vector<BoardView>& views, const Selection& selection);

/// Distances of one picture's corners in both eyes; with a selection of the selected ones only.
std::vector<double> distances(const FitErrors& errors, std::size_t view, const Selection* selection = nullptr);

}  // namespace stereo::calibration
