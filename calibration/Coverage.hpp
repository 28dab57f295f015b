// SPDX-License-Identifier: Apache-2.0
// Which parts of the image circles have corners.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// Where in the pictures corners were found: a grid over each eye's image circle, whose diameter is the eye's width. A
/// cell counts as covered once it has a corner.
class Coverage {
public:
  explicit Coverage(const cv::Size& eyeSize);

  void add(const BoardView& view);
  /// Share of the cells with a corner, 0 to 1.
  double share(int eye) const;
  /// Where the left eye lacks most corners: "middle", "left", "lower right", ...; empty once little is missing.
  std::string emptiest() const;

private:
  static constexpr int side = 9;
  bool counts(int row, int col) const;

  cv::Size m_eyeSize;
  std::array<cv::Mat, 2> m_cells;  // CV_8UC1, side x side: 0 nothing yet
};

}  // namespace stereo::calibration
