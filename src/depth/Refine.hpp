// SPDX-License-Identifier: Apache-2.0
// Refines disparities by least squares on patches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace stereo::depth {

/// A plane of floats with a border on all sides, so that windows need no tests.
class Plane {
public:
  static constexpr int border = 16;

  void create(int width, int height, float value);
  std::ptrdiff_t stride() const { return m_stride; }
  float* row(int y) { return m_values.data() + (y + border) * m_stride + border; }
  const float* row(int y) const { return m_values.data() + (y + border) * m_stride + border; }

private:
  std::ptrdiff_t m_stride = 0;
  std::vector<float> m_values;
};

/// Disparity of a pixel that has none: no pixel's disparity is like it.
constexpr float noDisparity = -1e6F;

/// The views that are compared, by row. A pixel of the disparity image covers `samples` of them (1 or 2).
struct RefineInput {
  int width = 0;  ///< pixels of the disparity image
  int height = 0;
  int samples = 0;                          ///< samples of the views in a pixel, along the row
  const std::uint16_t* left = nullptr;      ///< gray times 16; `leftWidth` a row
  const std::uint16_t* right = nullptr;     ///< `rightWidth` a row
  const std::uint8_t* rightSeen = nullptr;  ///< for each sample of `right`, 0 or 255
  int leftWidth = 0;
  int rightWidth = 0;
  int rightFirst = 0;  ///< column in the right view of the left view's first column
  float gain = 1.0F;   ///< factor on the right view's gray values
};

/// What the samples of each pixel contribute to the sums over a window. L and R are gray values of the left view and,
/// shifted by the pixel's own disparity, of the right one; g is the mean of their gradients along the row.
struct RefineTerms {
  static constexpr int count = 9;
  enum Term { sumL, sumR, sumLL, sumRR, sumLR, sumG, sumGL, sumGR, sumGG };

  void create(int width, int height);

  Plane planes[count];
};

/// The result for each pixel that has a disparity.
struct RefineResult {
  void create(int width, int height);

  Plane disparity;    ///< columns
  Plane sigma;        ///< standard error of the disparity, columns
  Plane correlation;  ///< of both views over the window, -1 to 1
  Plane texture;      ///< what both views' gradients have in common: mean of their product, gray levels squared
  Plane weight;       ///< 1 / sigma^2, 0 for disparities not to be trusted
  Plane misfit;       ///< mean square difference of the views over the window's middle column, over L's variance
};

/// Writes the terms of the rows [from, to). Pixels of `disparity` whose match lies outside the right eye's field become
/// `noDisparity`.
void refineTerms(const RefineInput& input, int from, int to, Plane& disparity, RefineTerms& terms);

/// Which pixels of a window count: every first, second or fourth row, every first or second column.
struct WindowStep {
  int rows;
  int columns;
};

/// Solves for each pixel of the rows [from, to), over the pixels of a window of 9 x 9 whose disparities differ by at
/// most `like` columns from its own. `misfit` is found only with every column.
void refineSolve(const RefineInput& input, int from, int to, const Plane& disparity, const RefineTerms& terms,
                 float like, const WindowStep& step, RefineResult& result);

/// Averages each disparity of the rows [from, to) with pairs of pixels opposite each other within `reach` that both
/// differ by at most `like`: planes stay as they are, also next to an edge.
void smoothDisparity(int width, int from, int to, const Plane& disparity, int reach, float like, Plane& smoothed);

/// Which pixels are averaged: pairs opposite each other at up to twice `step`. A plane that faces the eyes has a
/// disparity that falls to all sides, as the squared cosine of longitude and the cosine of latitude: the pair at one
/// `step` across or down lies lower by these shares of the disparity.
struct FuseRule {
  int step;
  float bendAcross;  ///< (step in radians)^2
  float bendDown;    ///< half of that
};

/// Averages the disparities of the rows [from, to), by weight, with those of pairs where they agree with the pixel's
/// own within its error.
void fuseDisparity(int width, int from, int to, const Plane& disparity, const Plane& weight, const FuseRule& rule,
                   Plane& fused, Plane& fusedWeight);

}  // namespace stereo::depth
