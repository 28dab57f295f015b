// SPDX-License-Identifier: Apache-2.0
// Where the samples of a cloud get their direction and depth.
#include "src/core/CloudSamplers.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;

double square(double value) { return value * value; }

bool has(const cv::Mat& image, int row, int column) {
  return row >= 0 && row < image.rows && column >= 0 && column < image.cols;
}

// Integer part of a non-negative value below `limit`; -1, which is in no image, for anything else.
int indexBelow(double value, int limit) { return value >= 0 && value < limit ? static_cast<int>(value) : -1; }

}  // namespace

Radius::Radius(int threshold)
    : m_threshold(threshold),
      m_squares{threshold < 0 ? -1 : square(threshold) * (1 - 1e-9),
                threshold < 0 ? std::numeric_limits<double>::infinity() : square(threshold) * (1 + 1e-9)} {}

bool Radius::excludes(double dx, double dy) const {
  const double squared = dx * dx + dy * dy;
  if (squared < m_squares.surelyInside) {
    return false;
  }
  return squared > m_squares.surelyOutside || std::hypot(dx, dy) > m_threshold;
}

Columns::Columns(int firstColumn, int blocks, const CloudModel& model)
    : first(firstColumn), count(2 * blocks), dx(static_cast<std::size_t>(count)), x(dx.size()) {
  for (std::size_t q = 0; q < dx.size(); ++q) {
    dx[q] = at(static_cast<int>(q)) - model.cx;
    x[q] = dx[q] / model.fx;
  }
}

LonLatSampler::LonLatSampler(const CloudImages& images, const CloudModel& model)
    : m_disparity(images.disparity),
      m_depth(images.depth),
      m_radius(model.threshold),
      m_model{model.xi,
              images.disparity.rows / pi,
              images.disparity.cols / pi,
              images.disparity.rows,
              images.disparity.cols,
              m_radius.squares()} {}

void LonLatSampler::sample(const ViewRow& view, const Columns& columns, Scratch& scratch, SampleRow& out) const {
  unprojectRow(columns.dx.data(), columns.x.data(), columns.count, view.dy, view.y, m_model, scratch.lambda.data(),
               scratch.row.data(), scratch.column.data());
  for (std::size_t q = 0; q < scratch.lambda.size(); ++q) {
    const double lambda = scratch.lambda[q];
    out.X[q] = lambda * columns.x[q];
    out.Y[q] = lambda * view.y;
    out.Z[q] = lambda - m_model.xi;
    int row = scratch.row[q];
    int column = scratch.column[q];
    if (row == uncertainPixel) {
      findPixel(columns.dx[q], view.dy, lambda, {out.X[q], out.Y[q], out.Z[q]}, row, column);
    }
    out.z[q] = has(m_disparity, row, column) && has(m_depth, row, column) && m_disparity.ptr<float>(row)[column] > 0
                   ? m_depth.ptr<float>(row)[column]
                   : 0.0F;
  }
}

// The pixel to look up, computed with the standard library's functions.
void LonLatSampler::findPixel(double dx, double dy, double lambda, const cv::Vec3d& ray, int& row, int& column) const {
  row = noPixel;
  if (m_radius.excludes(dx, dy) || std::isnan(lambda)) {
    return;
  }
  const double lon = std::acos(-ray[0]);  // NOLINT(clang-analyzer-core.CallAndMessage): the analyzer loses the ray
  const double lat = std::acos(-ray[1] / std::hypot(ray[1], ray[2]));
  row = indexBelow(lat * m_model.rowScale, m_model.rows);
  column = indexBelow(lon * m_model.columnScale, m_model.cols);
}

PlainPinholeSampler::PlainPinholeSampler(const CloudImages& images, const CloudModel& model)
    : m_disparity(images.disparity), m_bf((model.baselineMillimeters / 1000.0) * model.fx) {}

void PlainPinholeSampler::sample(const ViewRow& view, const Columns& columns, Scratch&, SampleRow& out) const {
  out.X = columns.x;
  std::fill(out.Y.begin(), out.Y.end(), view.y);
  for (int q = 0; q < columns.count; ++q) {
    const int j = columns.at(q);
    out.z[static_cast<std::size_t>(q)] =
        has(m_disparity, j, view.i) ? static_cast<float>(m_bf / m_disparity.ptr<float>(j)[view.i]) : 0.0F;
  }
}

ColoredPinholeSampler::ColoredPinholeSampler(const CloudImages& images, const CloudModel& model)
    : m_depth(images.depth), m_radius(model.threshold) {}

void ColoredPinholeSampler::sample(const ViewRow& view, const Columns& columns, Scratch&, SampleRow& out) const {
  out.X = columns.x;
  std::fill(out.Y.begin(), out.Y.end(), view.y);
  for (int q = 0; q < columns.count; ++q) {
    const int j = columns.at(q);
    const bool taken = !m_radius.excludes(columns.dx[static_cast<std::size_t>(q)], view.dy) && has(m_depth, j, view.i);
    out.z[static_cast<std::size_t>(q)] = taken ? m_depth.ptr<float>(j)[view.i] : 0.0F;
  }
}

}  // namespace stereo::core
