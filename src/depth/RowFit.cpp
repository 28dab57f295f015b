// SPDX-License-Identifier: Apache-2.0
// Estimates from matched frames by how much the eyes' rows are misaligned.
#include "src/depth/RowFit.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

namespace stereo::depth {

namespace {

constexpr int spacing = 4;                 // pixels between those that are looked at
constexpr int firstFrames = 6;             // looked at without a pause
constexpr int pause = 16;                  // frames, from then on
constexpr std::size_t enough = 600;        // pixels that a fit needs
constexpr double leastCorrection = 0.08;   // rows: less is not worth a first change
constexpr double leastChange = 0.03;       // rows, of a correction that there is
constexpr double largestResidual = 2.0;    // rows
constexpr double largestCorrection = 3.0;  // rows: more is no misalignment, but another fault
constexpr int mostMisses = 2;
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

RowFit::RowFit(const ViewGrid& grid, const core::RayProjection& eye) : m_grid(grid), m_eye(eye) {
  m_residuals.reserve((static_cast<std::size_t>(grid.width) / spacing + 1) *
                      (static_cast<std::size_t>(grid.height) / spacing + 1));
}

void RowFit::reset() {
  m_error = {};
  m_correction = 0.0;
  m_frames = 0;
  m_misses = 0;
}

core::RayProjection RowFit::corrected() const {
  // Rays turn by the rotation vector w before they reach the eye: r + w x r + w x (w x r) / 2.
  const cv::Vec3d w(m_error.c[0], 0.0, m_error.c[1]);
  core::RayProjection eye = m_eye;
  for (int axis = 0; axis < 3; ++axis) {
    cv::Vec3d r(0.0, 0.0, 0.0);
    r[axis] = 1.0;
    const cv::Vec3d turn = w.cross(r);
    const cv::Vec3d turned = r + turn + 0.5 * w.cross(turn);
    for (int row = 0; row < 3; ++row) {
      eye.m[row][axis] = m_eye.m[row][0] * turned[0] + m_eye.m[row][1] * turned[1] + m_eye.m[row][2] * turned[2];
    }
  }
  eye.cy += m_error.c[2];
  return eye;
}

bool RowFit::look(const RowFitInput& input, const Plane& disparity) {
  const int frame = m_frames++;
  if (frame >= firstFrames) {
    if (frame < firstFrames + pause - 1) {
      return false;
    }
    m_frames = firstFrames;
  }
  collect(input, disparity);
  // What was learned from bad frames may leave nothing to learn from: begin again.
  m_misses = m_residuals.size() < enough ? m_misses + 1 : 0;
  if (m_correction > 0.0 && m_misses >= mostMisses) {
    reset();
    return true;
  }
  EyeError found;
  if (!fit(found)) {
    return false;
  }
  EyeError sum = m_error;
  for (int k = 0; k < EyeError::terms; ++k) {
    sum.c[k] += found.c[k];
  }
  const double correction = rms(sum);
  if (correction > largestCorrection) {
    return false;
  }
  m_error = sum;
  m_correction = correction;
  return true;
}

// The angle across the row by which a ray moves. With the unit vector e = (0, cos latitude, -sin latitude) down and f
// along the row: e (w x r) for a rotation w. For a shift of the image, the displacement (a e + b f) that the eye
// projects to that shift: two equations in a and b.
void RowFit::fillBasis(double longitude, double latitude, double (&basis)[EyeError::terms]) const {
  const double X = std::sin(longitude);
  const double across = std::cos(longitude);
  const double sine = std::sin(latitude);
  const double cosine = std::cos(latitude);
  basis[0] = -across;
  basis[1] = X * cosine;
  constexpr double h = 0.02;
  const double r[3] = {X, across * sine, across * cosine};
  const double e[3] = {0.0, cosine, -sine};
  const double f[3] = {across, -X * sine, -X * cosine};
  double x[4];
  double y[4];
  double z[4];
  double* const parts[3] = {x, y, z};
  for (int axis = 0; axis < 3; ++axis) {
    parts[axis][0] = r[axis] + h * e[axis];
    parts[axis][1] = r[axis] - h * e[axis];
    parts[axis][2] = r[axis] + h * f[axis];
    parts[axis][3] = r[axis] - h * f[axis];
  }
  float u[4];
  float v[4];
  core::projectRays(m_eye, x, y, z, 4, u, v);
  const double ue = (u[0] - u[1]) / (2.0 * h);
  const double ve = (v[0] - v[1]) / (2.0 * h);
  const double uf = (u[2] - u[3]) / (2.0 * h);
  const double vf = (v[2] - v[3]) / (2.0 * h);
  const double det = ue * vf - uf * ve;
  basis[2] = std::abs(det) > 1.0 ? -uf / det : 0.0;
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
        Residual one{rows * m_grid.rowStep * std::cos(longitude), {}};
        fillBasis(longitude, latitude, one.basis);
        m_residuals.push_back(one);
      }
    }
  }
}

bool RowFit::fit(EyeError& found) const {
  if (m_residuals.size() < enough) {
    return false;
  }
  constexpr int n = EyeError::terms;
  using Square = cv::Matx<double, n, n>;
  using Column = cv::Matx<double, n, 1>;
  // Least squares, weighted by (1 - (r / s)^2)^2 within s, which narrows.
  double scale = largestResidual * m_grid.rowStep;
  Square inverse;
  double variance = 0.0;
  double before = 0.0;  // mean square of the differences, with the same weights, without the fit
  for (int pass = 0; pass < 5; ++pass) {
    Square normal = Square::zeros();
    Column right = Column::zeros();
    double weights = 0.0;
    double squares = 0.0;
    double unfitted = 0.0;
    for (const Residual& one : m_residuals) {
      double left = one.angle;
      for (int a = 0; a < n; ++a) {
        left -= found.c[a] * one.basis[a];
      }
      const double r = left / scale;
      if (std::abs(r) >= 1.0) {
        continue;
      }
      const double w = (1.0 - r * r) * (1.0 - r * r);
      for (int a = 0; a < n; ++a) {
        for (int b = 0; b < n; ++b) {
          normal(a, b) += w * one.basis[a] * one.basis[b];
        }
        right(a) += w * one.basis[a] * one.angle;
      }
      weights += w;
      squares += w * left * left;
      unfitted += w * one.angle * one.angle;
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
    before = unfitted / weights;
    scale = std::clamp(4.0 * std::sqrt(variance), 0.2 * m_grid.rowStep, scale);
  }
  // Rows that differ for another reason, such as a wrong focal length, are explained badly.
  constexpr double unexplained = 0.15;  // rows
  if (std::sqrt(variance) > unexplained * m_grid.rowStep && variance > 0.25 * before) {
    return false;
  }
  // How well is it known? The mean variance of the fit over the pixels; neighbors' errors go together.
  double error = 0.0;
  for (const Residual& one : m_residuals) {
    for (int a = 0; a < n; ++a) {
      for (int b = 0; b < n; ++b) {
        error += one.basis[a] * inverse(a, b) * one.basis[b];
      }
    }
  }
  const double known = std::sqrt(4.0 * variance * error / static_cast<double>(m_residuals.size())) / m_grid.rowStep;
  return rms(found) > std::max(m_correction > 0.0 ? leastChange : leastCorrection, 3.0 * known);
}

double RowFit::rms(const EyeError& error) const {
  double sum = 0.0;
  int count = 0;
  for (int y = 0; y < m_grid.height; y += 2 * spacing) {
    for (int x = 0; x < m_grid.width; x += 2 * spacing) {
      const double longitude = m_grid.longitude(x);
      if (std::abs(longitude) < steepest) {
        double basis[EyeError::terms];
        fillBasis(longitude, m_grid.latitude(y), basis);
        double angle = 0.0;
        for (int k = 0; k < EyeError::terms; ++k) {
          angle += error.c[k] * basis[k];
        }
        const double rows = angle / (std::cos(longitude) * m_grid.rowStep);
        sum += rows * rows;
        ++count;
      }
    }
  }
  return count > 0 ? std::sqrt(sum / count) : 0.0;
}

}  // namespace stereo::depth
