// SPDX-License-Identifier: Apache-2.0
// Estimates from matched frames by how much the eyes' rows are misaligned.
#include "src/depth/RowFit.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

namespace stereo::depth {

namespace {

constexpr int spacing = 4;                // pixels between those that are looked at
constexpr int firstFrames = 6;            // looked at without a pause
constexpr int pause = 16;                 // frames, from then on
constexpr std::size_t enough = 600;       // pixels that a fit needs
constexpr double leastCorrection = 0.04;  // rows: less is not worth a change
constexpr double largestResidual = 2.0;   // rows
constexpr double roundTo = 1 << 20;
constexpr double steepest = 1.31;  // radians of longitude: rows converge toward 90 degrees

// Rows by which the patch around (x, y) of the left view lies lower in the right one; false if there is no telling.
bool residualRows(const RowFitInput& input, int x, int y, float disparity, double& rows) {
  constexpr int across = 4;
  constexpr int down = 2;
  const float place = static_cast<float>(x + input.rightFirst) - disparity;
  if (x < across || x + across >= input.grid.width || y <= down || y + down + 1 >= input.grid.height ||
      place < across + 1 || place > static_cast<float>(input.rightWidth - across - 3)) {
    return false;
  }
  const int i = static_cast<int>(place);
  const float t = place - static_cast<float>(i);
  float sumG = 0.0F;
  float sumE = 0.0F;
  float sumGE = 0.0F;
  float sumGG = 0.0F;
  float both = 0.0F;
  constexpr float count = (2 * across + 1) * (2 * down + 1);
  for (int dy = -down; dy <= down; ++dy) {
    const std::uint16_t* const l = input.left + static_cast<std::ptrdiff_t>(y + dy) * input.grid.width + x;
    const std::uint16_t* const r = input.right + static_cast<std::ptrdiff_t>(y + dy) * input.rightWidth + i;
    for (int dx = -across; dx <= across; ++dx) {
      const auto sample = [&](const std::uint16_t* row) {
        return static_cast<float>(row[dx]) + t * (static_cast<float>(row[dx + 1]) - static_cast<float>(row[dx]));
      };
      const float gl =
          0.5F * (static_cast<float>(l[dx + input.grid.width]) - static_cast<float>(l[dx - input.grid.width]));
      const float gr = 0.5F * (sample(r + input.rightWidth) - sample(r - input.rightWidth));
      const float g = 0.5F * (gl + gr);
      const float e = static_cast<float>(l[dx]) - sample(r);
      sumG += g;
      sumE += e;
      sumGE += g * e;
      sumGG += g * g;
      both += gl * gr;
    }
  }
  const float gg = sumGG - sumG * sumG / count;
  // Texture that both views share, not noise: at least two gray levels a row.
  if (!(gg > count * 64.0F * 64.0F) || both < 0.5F * sumGG) {
    return false;
  }
  // L(y) = R(y + v): v = sum g (L - R) / sum g^2.
  rows = (sumGE - sumG * sumE / count) / gg;
  return std::abs(rows) < largestResidual;
}

}  // namespace

RowFit::RowFit(const ViewGrid& grid) : m_grid(grid) {
  m_residuals.reserve((static_cast<std::size_t>(grid.width) / spacing + 1) *
                      (static_cast<std::size_t>(grid.height) / spacing + 1));
}

void RowFit::reset() {
  m_shift = {};
  m_correction = 0.0;
  m_frames = 0;
}

bool RowFit::look(const RowFitInput& input, const Plane& disparity) {
  const int frame = m_frames++;
  m_frames = std::min(m_frames, firstFrames + pause);
  if (frame >= firstFrames) {
    if (frame < firstFrames + pause - 1) {
      return false;
    }
    m_frames = firstFrames;
  }
  collect(input, disparity);
  RowShift found;
  if (!fit(found)) {
    return false;
  }
  for (int k = 0; k < RowShift::terms; ++k) {
    m_shift.c[k] += found.c[k];
  }
  m_correction = rms(m_shift);
  return true;
}

void RowFit::collect(const RowFitInput& input, const Plane& disparity) {
  m_residuals.clear();
  for (int y = spacing / 2; y < m_grid.height; y += spacing) {
    const float* const d = disparity.row(y);
    const double latitude = m_grid.latitude(y);
    for (int x = spacing / 2; x < m_grid.width; x += spacing) {
      double rows = 0.0;
      if (d[x] == noDisparity || !residualRows(input, x, y, d[x], rows)) {
        continue;
      }
      const double longitude = m_grid.longitude(static_cast<double>(x) - d[x]);
      if (std::abs(longitude) < steepest) {
        const double across = std::cos(longitude);
        m_residuals.push_back({std::sin(longitude), across * std::sin(latitude), rows * m_grid.rowStep * across});
      }
    }
  }
}

bool RowFit::fit(RowShift& found) const {
  if (m_residuals.size() < enough) {
    return false;
  }
  constexpr int n = RowShift::terms;
  using Square = cv::Matx<double, n, n>;
  using Column = cv::Matx<double, n, 1>;
  // Least squares, weighted by (1 - (r / s)^2)^2 within s, which narrows.
  double scale = largestResidual * m_grid.rowStep;
  Square inverse;
  double variance = 0.0;
  for (int pass = 0; pass < 5; ++pass) {
    Square normal = Square::zeros();
    Column right = Column::zeros();
    double weights = 0.0;
    double squares = 0.0;
    for (const Residual& one : m_residuals) {
      const double r = (one.angle - found.angle(one.X, one.Y)) / scale;
      if (std::abs(r) >= 1.0) {
        continue;
      }
      const double w = (1.0 - r * r) * (1.0 - r * r);
      double values[n];
      RowShift::basis(one.X, one.Y, values);
      for (int a = 0; a < n; ++a) {
        for (int b = 0; b < n; ++b) {
          normal(a, b) += w * values[a] * values[b];
        }
        right(a) += w * values[a] * one.angle;
      }
      weights += w;
      squares += w * r * r * scale * scale;
    }
    if (weights < 0.25 * static_cast<double>(enough)) {
      return false;
    }
    bool isInverted = false;
    inverse = normal.inv(cv::DECOMP_CHOLESKY, &isInverted);
    if (!isInverted) {
      return false;
    }
    const Column solution = inverse * right;
    for (int k = 0; k < n; ++k) {
      // Rounded, so that other processors' last bits don't show.
      found.c[k] = std::nearbyint(solution(k) * roundTo) / roundTo;
    }
    variance = squares / weights;
    scale = std::clamp(4.0 * std::sqrt(variance), 0.2 * m_grid.rowStep, scale);
  }
  // How well is it known? The mean variance of the fit over the pixels; neighbors' errors go together.
  double error = 0.0;
  for (const Residual& one : m_residuals) {
    double values[n];
    RowShift::basis(one.X, one.Y, values);
    for (int a = 0; a < n; ++a) {
      for (int b = 0; b < n; ++b) {
        error += values[a] * inverse(a, b) * values[b];
      }
    }
  }
  const double known = std::sqrt(4.0 * variance * error / static_cast<double>(m_residuals.size())) / m_grid.rowStep;
  return rms(found) > std::max(leastCorrection, 3.0 * known);
}

double RowFit::rms(const RowShift& shift) const {
  double sum = 0.0;
  int count = 0;
  for (int y = 0; y < m_grid.height; y += spacing) {
    for (int x = 0; x < m_grid.width; x += spacing) {
      const double longitude = m_grid.longitude(x);
      if (std::abs(longitude) < steepest) {
        const double across = std::cos(longitude);
        const double rows =
            shift.angle(std::sin(longitude), across * std::sin(m_grid.latitude(y))) / (across * m_grid.rowStep);
        sum += rows * rows;
        ++count;
      }
    }
  }
  return count > 0 ? std::sqrt(sum / count) : 0.0;
}

}  // namespace stereo::depth
