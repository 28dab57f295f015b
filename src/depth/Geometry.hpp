// SPDX-License-Identifier: Apache-2.0
// Which ray a pixel of the view has, where an eye sees it, and how far away a parallax is.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "WideDepth.hpp"
#include "src/core/RayProjection.hpp"

namespace stereo::depth {

/// A view of equal angles. Pixel (column, row) has longitude (column + 0.5 - middleColumn) columnStep and latitude
/// (row + 0.5 - middleRow) rowStep.
struct ViewGrid {
  int width = 0;
  int height = 0;
  double columnStep = 0;  ///< radians
  double rowStep = 0;     ///< radians
  double middleColumn = 0;
  double middleRow = 0;

  /// The view of `options`.
  static ViewGrid of(const WideDepthOptions& options);
  /// A grid over the same angles, whose pixels are blocks of `factor` x `factor`; the last ones may reach beyond.
  ViewGrid coarser(int factor) const;
  /// A grid with twice the columns.
  ViewGrid finerColumns() const;

  double longitude(double column) const { return (column + 0.5 - middleColumn) * columnStep; }
  double latitude(double row) const { return (row + 0.5 - middleRow) * rowStep; }
};

/// Both eyes, checked: see the constructor of `WideDepth`.
struct EyePair {
  core::RayProjection eyes[2];  ///< rays of the rectified frame, pixels of an eye's image
  double baseline = 0;          ///< meters
};

/// Throws cv::Exception for calibrations and sizes that cannot be right.
EyePair eyePair(const WideDepthCalibration& calibration, cv::Size eye);

/// Where to sample an eye's image for each pixel of a view: position of the upper left of four pixels, and weights of
/// the right column and the lower row in 1/128.
struct SampleMap {
  int width = 0;
  int height = 0;
  std::vector<std::int32_t> offset;  ///< of the upper left pixel; `outside` where the eye sees nothing
  std::vector<std::uint8_t> right;
  std::vector<std::uint8_t> lower;
  std::vector<std::uint8_t> seen;  ///< 255 or 0
};

/// Fills `map` for the columns [first, first + width) of `grid`, in an image whose rows are `stride` pixels apart.
/// Rays beyond 90 degrees of longitude or outside the eye's circle and image are not seen: they get `outside`, which
/// must be followed by zeros.
void buildSampleMap(const core::RayProjection& eye, cv::Size image, const ViewGrid& grid, int first, int width,
                    int stride, std::int32_t outside, int threads, SampleMap& map);

/// Unit rays of a view, CV_32FC3.
cv::Mat unitRays(const ViewGrid& grid);

/// Largest parallax, radians, of anything at least `range` away from the left eye.
double largestParallax(double baseline, double range);

}  // namespace stereo::depth
