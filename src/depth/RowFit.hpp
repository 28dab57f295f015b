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

/// Keeps the row correction of the right eye. Pixels that were measured say by how many rows they differ; a smooth
/// function is fitted to them, with outliers left out. Only what is clearly more than its own error is corrected.
class RowFit {
public:
  explicit RowFit(const ViewGrid& grid);

  /// Looks at a frame, most often at none of it. Returns true if `shift()` has changed.
  bool look(const RowFitInput& input, const Plane& disparity);
  void reset();

  const RowShift& shift() const { return m_shift; }
  /// Root mean square of the correction over the grid, rows.
  double correction() const { return m_correction; }

private:
  struct Residual {
    double X;
    double Y;
    double angle;  ///< radians by which the right eye sees the pixel too low
  };

  void collect(const RowFitInput& input, const Plane& disparity);
  bool fit(RowShift& found) const;
  double rms(const RowShift& shift) const;

  ViewGrid m_grid;
  std::vector<Residual> m_residuals;
  RowShift m_shift;
  double m_correction = 0.0;
  int m_frames = 0;
};

}  // namespace stereo::depth
