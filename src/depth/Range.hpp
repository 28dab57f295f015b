// SPDX-License-Identifier: Apache-2.0
// Range from parallax.
#pragma once

#include <cstdint>
#include <vector>

#include "src/depth/Geometry.hpp"

namespace stereo::depth {

/// What turns disparities into ranges. With the longitude t of a pixel and the parallax d,
///   r = b (cos t cot d + sin t).
struct RangeModel {
  RangeModel(const ViewGrid& grid, double baseline, double nearest, double farthest);

  std::vector<double> sines;  ///< of each column's longitude
  std::vector<double> cosines;
  double columnStep;  ///< radians
  double baseline;    ///< meters
  double nearest;
  double farthest;
};

/// Ranges of a row of disparities (columns of the grid, `noDisparity` where there is none). Where the state says
/// `measured`, writes range and confidence (by the error that `sigma`, columns, gives the range), or the state that the
/// range implies; elsewhere both become 0.
void rangeRow(const RangeModel& model, const float* disparity, const float* sigma, int count, float* range,
              std::uint8_t* state, std::uint8_t* confidence);

}  // namespace stereo::depth
