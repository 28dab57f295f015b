// SPDX-License-Identifier: Apache-2.0
#include "core/Cloud.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "core/Rows.hpp"

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;
constexpr int blockSize = 4;
constexpr std::size_t oddPerBlock = 2;                               // odd rows, and odd columns, in any four
constexpr std::size_t mostPerBlock = oddPerBlock * oddPerBlock - 1;  // kept: one point may be nearest and farthest
constexpr std::size_t cloudGrain = kGrain / 2;                       // pixels of the view, a quarter of them tried

// A direction (X, Y, Z) and the depth found along it, metres.
struct Candidate {
  double key;  // ranks the points of a block by nearness
  double X, Y, Z;
  float z;
  int row, col;
};

// Rows or columns at which blocks start, in [start, end).
struct Span {
  int start;
  double end;

  int blocks() const { return start < end ? static_cast<int>(std::ceil((end - start) / blockSize)) : 0; }
};

void requireType(const cv::Mat& image, int type) {
  CV_Assert(image.empty() || (image.dims == 2 && image.type() == type));
}

bool has(const cv::Mat& image, int row, int column) {
  return row >= 0 && row < image.rows && column >= 0 && column < image.cols;
}

// Integer part of a non-negative value below `limit`; -1, which no image has, for anything else.
int indexBelow(double value, int limit) { return value >= 0 && value < limit ? static_cast<int>(value) : -1; }

// The depth multiplies each squared component once: sqrt(z X^2 + z Y^2 + z Z^2).
double rankingKey(const Candidate& c) { return std::sqrt(c.z * (c.X * c.X) + c.z * (c.Y * c.Y) + c.z * (c.Z * c.Z)); }

// Circle round the principal point. `hypot` decides; it is asked only where the squares, which are many times faster,
// leave a doubt (or are not numbers).
class Radius {
public:
  explicit Radius(const CloudModel& model)
      : m_threshold(model.threshold),
        m_surelyInside(model.threshold < 0 ? -1 : square(m_threshold) * (1 - 1e-9)),
        m_surelyOutside(model.threshold < 0 ? std::numeric_limits<double>::infinity()
                                            : square(m_threshold) * (1 + 1e-9)) {}

  // Distances from the principal point, pixels.
  bool excludes(double dx, double dy) const {
    const double squared = dx * dx + dy * dy;
    if (squared < m_surelyInside) {
      return false;
    }
    return squared > m_surelyOutside || std::hypot(dx, dy) > m_threshold;
  }

private:
  static double square(double value) { return value * value; }

  double m_threshold;
  double m_surelyInside;
  double m_surelyOutside;
};

// Place (j, i) of the view, and on the plane at distance 1: x = (j - cx) / fx, y = (i - cy) / fy.
struct Place {
  int i, j;
  double dx, dy;  // j - cx, i - cy
  double x, y;
};

// Lifts the pixel onto the unit sphere by the left eye's model,
//   r2 = x^2 + y^2,  lambda = (xi + sqrt(1 + (1 - xi^2) r2)) / (1 + r2),  (X, Y, Z) = (lambda x, lambda y, lambda -
//   xi),
// and looks depth up where the ray's longitude acos(-X) and latitude acos(-Y / |(Y, Z)|) fall in images that are taken
// to span pi both ways.
class LiftedSampler {
public:
  LiftedSampler(const CloudImages& images, const CloudModel& model)
      : m_disparity(images.disparity),
        m_depth(images.depth),
        m_radius(model),
        m_xi(model.xi),
        m_rowScale(images.disparity.rows / pi),
        m_columnScale(images.disparity.cols / pi) {}

  bool sample(const Place& place, Candidate& c) const {
    if (m_radius.excludes(place.dx, place.dy)) {
      return false;
    }
    const double r2 = place.x * place.x + place.y * place.y;
    const double lambda = (m_xi + std::sqrt(1 + (1 - m_xi * m_xi) * r2)) / (1 + r2);
    if (std::isnan(lambda)) {
      return false;
    }
    c.X = lambda * place.x;
    c.Y = lambda * place.y;
    c.Z = lambda - m_xi;
    const double lon = std::acos(-c.X);
    const double lat = std::acos(-c.Y / std::hypot(c.Y, c.Z));
    const int row = indexBelow(lat * m_rowScale, m_disparity.rows);
    const int column = indexBelow(lon * m_columnScale, m_disparity.cols);
    if (!has(m_disparity, row, column) || !has(m_depth, row, column)) {
      return false;
    }
    c.z = m_depth.ptr<float>(row)[column];
    return m_disparity.ptr<float>(row)[column] > 0 && c.z > 0;
  }

private:
  const cv::Mat& m_disparity;
  const cv::Mat& m_depth;
  Radius m_radius;
  double m_xi;
  double m_rowScale, m_columnScale;
};

// Pinhole, (x, y, 1) z. The look-up takes the column for the row and the row for the column. z comes from the
// disparity, z = b fx / d (infinite for d = 0), without a radius.
class PlainPinholeSampler {
public:
  PlainPinholeSampler(const CloudImages& images, const CloudModel& model)
      : m_disparity(images.disparity), m_bf((model.baselineMillimetres / 1000.0) * model.fx) {}

  bool sample(const Place& place, Candidate& c) const {
    if (!has(m_disparity, place.j, place.i)) {
      return false;
    }
    c.z = static_cast<float>(m_bf / m_disparity.ptr<float>(place.j)[place.i]);
    c.X = place.x;
    c.Y = place.y;
    c.Z = 1.0;
    return c.z > 0;
  }

private:
  const cv::Mat& m_disparity;
  double m_bf;
};

// The same with z from the depth image, within the radius.
class ColouredPinholeSampler {
public:
  ColouredPinholeSampler(const CloudImages& images, const CloudModel& model) : m_depth(images.depth), m_radius(model) {}

  bool sample(const Place& place, Candidate& c) const {
    if (m_radius.excludes(place.dx, place.dy) || !has(m_depth, place.j, place.i)) {
      return false;
    }
    c.z = m_depth.ptr<float>(place.j)[place.i];
    c.X = place.x;
    c.Y = place.y;
    c.Z = 1.0;
    return c.z > 0;
  }

private:
  const cv::Mat& m_depth;
  Radius m_radius;
};

// Writes all but the nearest and the farthest of a block to `out`, nothing of a block of two or fewer; returns the end.
CloudPoint* writeTrimmed(Candidate* block, std::size_t count, CloudPoint* out) {
  if (count <= 2) {
    return out;
  }
  std::size_t nearest = 0;
  std::size_t farthest = 0;
  double smallest = 1e9;
  double largest = 0.0;
  for (std::size_t k = 0; k < count; ++k) {
    const double key = rankingKey(block[k]);
    if (key < smallest) {
      smallest = key;
      nearest = k;
    }
    if (key > largest) {
      largest = key;
      farthest = k;
    }
  }
  for (std::size_t k = 0; k < count; ++k) {
    if (k != nearest && k != farthest) {
      const Candidate& c = block[k];
      ::new (out++) CloudPoint{
          cv::Vec3f(static_cast<float>(c.X * c.z), static_cast<float>(c.Y * c.z), static_cast<float>(c.Z * c.z)), c.row,
          c.col};
    }
  }
  return out;
}

// The coloured form of mode 1 leaves out 5 % of the view on every side.
Span blockSpan(int extent, bool border) {
  return border ? Span{static_cast<int>(0.05 * extent), 0.95 * extent} : Span{0, static_cast<double>(extent)};
}

}  // namespace

SampledCloud::SampledCloud(std::size_t capacity)
    : m_points(static_cast<CloudPoint*>(::operator new(capacity * sizeof(CloudPoint)))) {}

void SampledCloud::Free::operator()(CloudPoint* points) const { ::operator delete(points); }

// Samples rows of blocks side by side, each into a stretch of its own, and closes the gaps between them at the end.
class CloudWriter {
public:
  // `limit`: pixels are tried only within this size.
  CloudWriter(const Span& rows, const Span& cols, cv::Size limit, const CloudModel& model)
      : m_firstRow(rows.start | 1),
        m_firstCol(cols.start | 1),
        m_rowOfBlocks(static_cast<std::size_t>(cols.blocks())),
        m_limit(limit),
        m_model(model),
        m_ends(static_cast<std::size_t>(rows.blocks())),
        m_cloud(m_ends.size() * m_rowOfBlocks * mostPerBlock) {}

  template <typename Sampler>
  SampledCloud write(const Sampler& sampler) {
    const auto blockRows = static_cast<int>(m_ends.size());
    forRows(
        blockRows, static_cast<int>(m_rowOfBlocks) * blockSize * blockSize,
        [&](int from, int to) {
          for (int b = from; b < to; ++b) {
            m_ends[static_cast<std::size_t>(b)] = writeRow(b, sampler);
          }
        },
        cloudGrain);
    CloudPoint* end = m_cloud.m_points.get();
    for (int b = 0; b < blockRows; ++b) {
      CloudPoint* const start = startOf(b);
      end = end == start ? m_ends[static_cast<std::size_t>(b)]
                         : std::copy(start, m_ends[static_cast<std::size_t>(b)], end);
    }
    m_cloud.m_size = static_cast<std::size_t>(end - m_cloud.m_points.get());
    return std::move(m_cloud);
  }

private:
  CloudPoint* startOf(int blockRow) const {
    return m_cloud.m_points.get() + static_cast<std::size_t>(blockRow) * m_rowOfBlocks * mostPerBlock;
  }

  template <typename Sampler>
  CloudPoint* writeRow(int blockRow, const Sampler& sampler) const {
    CloudPoint* out = startOf(blockRow);
    const int firstRow = m_firstRow + blockRow * blockSize;
    for (std::size_t b = 0; b < m_rowOfBlocks; ++b) {
      const int firstCol = m_firstCol + static_cast<int>(b) * blockSize;
      Candidate block[oddPerBlock * oddPerBlock];
      std::size_t count = 0;
      for (int i = firstRow; i <= firstRow + 2 && i < m_limit.height; i += 2) {
        const double dy = i - m_model.cy;
        const double y = dy / m_model.fy;
        for (int j = firstCol; j <= firstCol + 2 && j < m_limit.width; j += 2) {
          const double dx = j - m_model.cx;
          block[count].row = i;
          block[count].col = j;
          count += sampler.sample({i, j, dx, dy, dx / m_model.fx, y}, block[count]) ? 1 : 0;
        }
      }
      out = writeTrimmed(block, count, out);
    }
    return out;
  }

  int m_firstRow, m_firstCol;
  std::size_t m_rowOfBlocks;
  cv::Size m_limit;
  const CloudModel& m_model;
  std::vector<CloudPoint*> m_ends;  // of each row of blocks
  SampledCloud m_cloud;
};

SampledCloud sampleCloud(const CloudImages& images, const CloudModel& model, CloudForm form) {
  // Only what the form and the mode look into: of the view, the plain form takes nothing but the size.
  const bool coloured = form == CloudForm::coloured;
  if (coloured) {
    requireType(images.view, CV_8UC3);
  }
  if (coloured || model.mode == 1) {
    requireType(images.depth, CV_32FC1);
  }
  requireType(images.disparity, CV_32FC1);
  if (model.mode != 1 && model.mode != 2) {
    return SampledCloud(0);
  }
  // A colour is read at the pixel itself, so the coloured form ends at the view's edge.
  constexpr int none = std::numeric_limits<int>::max();
  const cv::Size limit = coloured ? images.view.size() : cv::Size(none, none);
  CloudWriter writer(blockSpan(images.view.rows, coloured && model.mode == 1),
                     blockSpan(images.view.cols, coloured && model.mode == 1), limit, model);
  if (model.mode == 1) {
    return writer.write(LiftedSampler(images, model));
  }
  return coloured ? writer.write(ColouredPinholeSampler(images, model))
                  : writer.write(PlainPinholeSampler(images, model));
}

}  // namespace stereo::core
