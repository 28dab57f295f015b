// SPDX-License-Identifier: Apache-2.0
// Estimates from matched frames by how much the eyes' rows are misaligned.
#pragma once

#include <cstdint>
#include <vector>

#include "src/depth/Geometry.hpp"
#include "src/depth/Refine.hpp"

namespace stereo::depth {

/// Views that were matched, by row: gray times 32.
struct RowFitInput {
  ViewGrid grid;
  const std::uint16_t* left = nullptr;
  const std::uint16_t* right = nullptr;  ///< `rightWidth` a row
  int rightWidth = 0;
  int rightFirst = 0;  ///< column in the right view of the left view's first column
};

/// By how much the right eye differs from its calibration. Not about y: such a turn hardly moves rows, but scales far
/// ranges, and rows that differ for another reason would be taken for it.
struct EyeError {
  static constexpr int terms = 3;
  double c[terms] = {};  ///< rotation about x and z, radians; center of its image down the rows, pixels
};

/// Keeps the row correction of the right eye. Pixels that were measured say by how many rows they differ; a small
/// rotation and shift of the eye are fitted to them, with outliers left out. Only what is clearly more than its own
/// error, explains most of the difference and is small is corrected. A correction under which little can be measured is
/// given up.
class RowFit {
public:
  RowFit(const ViewGrid& grid, const core::RayProjection& eye);

  /// Looks at a frame, most often at none of it. Returns true if `corrected()` has changed.
  bool look(const RowFitInput& input, const Plane& disparity);
  void reset();

  /// The eye as it seems to be.
  core::RayProjection corrected() const;
  /// Root mean square of the correction over the grid, rows.
  double correction() const { return m_correction; }

private:
  struct Residual {
    double angle;                   ///< radians by which the right eye sees the pixel too low
    double basis[EyeError::terms];  ///< the same for each term's unit
  };

  void collect(const RowFitInput& input, const Plane& disparity);
  void fillBasis(double longitude, double latitude, double (&basis)[EyeError::terms]) const;
  bool fit(EyeError& found) const;
  double rms(const EyeError& error) const;

  ViewGrid m_grid;
  core::RayProjection m_eye;
  std::vector<Residual> m_residuals;
  EyeError m_error;
  double m_correction = 0.0;
  int m_frames = 0;
  int m_misses = 0;  // looks in a row that found too little to fit
};

}  // namespace stereo::depth
