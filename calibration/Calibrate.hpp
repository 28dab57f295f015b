// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "calibration/BoardGeometry.hpp"
#include "calibration/FitErrors.hpp"
#include "calibration/Solver.hpp"

namespace stereo::calibration {

/// The pictures do not determine a calibration; the text says why and what to do.
class CannotCalibrate : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

struct Calibration {
  std::vector<BoardView> views;  ///< what it was made from
  Estimate estimate;
  Selection selection;     ///< corners that the result rests on; a picture that was thrown out has none
  std::vector<char> kept;  ///< one a view
  FitErrors errors;
  bool converged = false;

  std::size_t picturesKept() const;
  /// Corners of the pictures that were kept, both eyes.
  std::size_t cornersFound() const;
  /// Those of them that the result rests on.
  std::size_t cornersUsed() const;
  /// Root mean square of the distances between corners and model, pixels: over all corners of the pictures that were
  /// kept, whether or not the result rests on them.
  double rms() const;
  /// Over the corners that the result rests on.
  double rmsUsed() const;
  /// Millimetres.
  double baseline() const { return cv::norm(estimate.rig.rightFromLeft.translation); }
  /// The greatest angle off an eye's axis that corners were found at, radians.
  double reach(int eye) const;
};

/// Calibrates both eyes and the pair from boards seen by both or either. Each eye is started by itself from many
/// guesses
/// (`initialEye`), then all is improved together (`solve`); corners that lie far off and pictures that do not fit are
/// taken out and all is improved again until nothing more is taken out. Pictures thrown out are tried once more with
/// the result.
///
/// @param eyeSize size of one eye's image, pixels.
/// @param tell    gets a line for each step.
/// Throws CannotCalibrate, and std::invalid_argument for a square board.
Calibration calibrate(const std::vector<BoardView>& views, const Board& board, const cv::Size& eyeSize,
                      const std::function<void(const std::string&)>& tell);

/// Fewest pictures with the board in both eyes that a calibration is made from.
inline constexpr std::size_t leastPictures = 5;

}  // namespace stereo::calibration
