// SPDX-License-Identifier: Apache-2.0
// Calibrates both eyes from views of a board, rejecting outliers.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "calibration/BoardGeometry.hpp"
#include "calibration/FitErrors.hpp"
#include "calibration/Solver.hpp"

namespace stereo::calibration {

/// The pictures do not determine a calibration; the message says why and what to do.
class CannotCalibrate : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

struct Calibration {
  std::vector<BoardView> views;  ///< the input
  Estimate estimate;
  Selection selection;     ///< corners used; a rejected picture has none
  std::vector<char> kept;  ///< one for each view
  FitErrors errors;
  bool converged = false;

  std::size_t picturesKept() const;
  /// Number of corners in the pictures kept, both eyes.
  std::size_t cornersFound() const;
  /// Number of those that are used.
  std::size_t cornersUsed() const;
  /// Root mean square of the distances between corners and model, pixels, over all corners of the pictures kept, used
  /// or not.
  double rms() const;
  /// The same over the corners used.
  double rmsUsed() const;
  /// Millimeters.
  double baseline() const { return cv::norm(estimate.rig.rightFromLeft.translation); }
  /// The greatest angle of a used corner off the eye's axis, radians.
  double reach(int eye) const;
};

/// Calibrates both eyes and their relative pose from boards seen by both or either. `initialEye` gives an initial
/// estimate of each eye, then `solve` refines all together. Outlying corners and pictures that do not fit are rejected
/// and the rest refined again until there are no more. Rejected pictures are tried once more with the result.
///
/// @param eyeSize size of one eye's image, pixels.
/// @param tell    called with a line for each step.
/// Throws CannotCalibrate, and std::invalid_argument for a square board.
Calibration calibrate(const std::vector<BoardView>& views, const Board& board, const cv::Size& eyeSize,
                      const std::function<void(const std::string&)>& tell);

/// Fewest pictures with the board in both eyes that `calibrate` accepts.
inline constexpr std::size_t leastPictures = 5;

}  // namespace stereo::calibration
