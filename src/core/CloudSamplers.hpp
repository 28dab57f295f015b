// SPDX-License-Identifier: Apache-2.0
// Where the samples of a cloud get their direction and depth: one sampler for each form and mode.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "src/core/Cloud.hpp"
#include "src/core/CloudKernels.hpp"

namespace stereo::core {

/// Circle around the principal point. `hypot` decides, but is called only where the squares, which are many times
/// faster, leave a doubt (or are NaN).
class Radius {
public:
  /// Threshold in pixels; below 0 excludes everything.
  explicit Radius(int threshold);

  const RadiusSquares& squares() const { return m_squares; }

  /// Arguments are the distances from the principal point, pixels.
  bool excludes(double dx, double dy) const;

private:
  double m_threshold;
  RadiusSquares m_squares;
};

/// The odd columns of the view that belong to blocks, two for each block.
struct Columns {
  int first;
  int count;
  std::vector<double> dx;  ///< j - cx
  std::vector<double> x;   ///< dx / fx, on the plane at distance 1

  Columns(int firstColumn, int blocks, const CloudModel& model);
  int at(int q) const { return first + 2 * q; }
};

/// The samples of one odd row of the view: directions (X, Y, Z), the depth found along them in meters, 0 if there is
/// none, and the keys that rank the points of a block by nearness.
struct SampleRow {
  std::vector<double> X, Y, Z, keys;
  std::vector<float> z;

  explicit SampleRow(int count) : X(static_cast<std::size_t>(count)), Y(X), Z(X.size(), 1.0), keys(X), z(X.size()) {}
};

/// Row i of the view; dy = i - cy, y = dy / fy.
struct ViewRow {
  int i;
  double dy, y;
};

// Samplers fill everything of a row but its keys. They hold references to the images. Any number of threads may sample
// at once, each with a `Scratch` of its own.

/// Unprojects pixels to the unit sphere by the left eye's model and looks depth up at their longitude and latitude, in
/// images that are taken to span pi both ways. `unprojectRow` does what can be done fast.
class LonLatSampler {
public:
  LonLatSampler(const CloudImages& images, const CloudModel& model);

  struct Scratch {
    std::vector<double> lambda;
    std::vector<std::int32_t> row, column;

    explicit Scratch(int count) : lambda(static_cast<std::size_t>(count)), row(lambda.size()), column(lambda.size()) {}
  };

  void sample(const ViewRow& view, const Columns& columns, Scratch& scratch, SampleRow& out) const;

private:
  void findPixel(double dx, double dy, double lambda, const cv::Vec3d& ray, int& row, int& column) const;

  const cv::Mat& m_disparity;
  const cv::Mat& m_depth;
  Radius m_radius;
  UnprojectModel m_model;
};

struct NoScratch {
  explicit NoScratch(int) {}
};

/// Pinhole, (x, y, 1) z. The lookup takes the column for the row and the row for the column. z comes from the
/// disparity, z = b fx / d (infinite for d = 0), without a radius.
class PlainPinholeSampler {
public:
  using Scratch = NoScratch;

  PlainPinholeSampler(const CloudImages& images, const CloudModel& model);
  void sample(const ViewRow& view, const Columns& columns, Scratch&, SampleRow& out) const;

private:
  const cv::Mat& m_disparity;
  double m_bf;
};

/// The same with z from the depth image, within the radius.
class ColoredPinholeSampler {
public:
  using Scratch = NoScratch;

  ColoredPinholeSampler(const CloudImages& images, const CloudModel& model);
  void sample(const ViewRow& view, const Columns& columns, Scratch&, SampleRow& out) const;

private:
  const cv::Mat& m_depth;
  Radius m_radius;
};

}  // namespace stereo::core
