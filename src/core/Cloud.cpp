// SPDX-License-Identifier: Apache-2.0
#include "src/core/Cloud.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "src/core/CloudKernels.hpp"
#include "src/core/Rows.hpp"

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;
constexpr int blockSize = 4;
constexpr std::size_t oddPerBlock = 2;                              // odd rows, and odd columns, in any four
constexpr std::size_t maxPerBlock = oddPerBlock * oddPerBlock - 1;  // kept: one point may be nearest and farthest
constexpr std::size_t cloudGrain = kGrain / 2;                      // pixels of the view, a quarter of them tried

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

// Circle round the principal point. `hypot` decides; it is asked only where the squares, which are many times faster,
// leave a doubt (or are not numbers).
class Radius {
public:
  explicit Radius(int threshold)
      : m_threshold(threshold),
        m_squares{threshold < 0 ? -1 : square(threshold) * (1 - 1e-9),
                  threshold < 0 ? std::numeric_limits<double>::infinity() : square(threshold) * (1 + 1e-9)} {}

  const RadiusSquares& squares() const { return m_squares; }

  // Distances from the principal point, pixels.
  bool excludes(double dx, double dy) const {
    const double squared = dx * dx + dy * dy;
    if (squared < m_squares.surelyInside) {
      return false;
    }
    return squared > m_squares.surelyOutside || std::hypot(dx, dy) > m_threshold;
  }

private:
  static double square(double value) { return value * value; }

  double m_threshold;
  RadiusSquares m_squares;
};

// The odd columns of the view that blocks have, two a block.
struct Columns {
  int first;
  int count;
  std::vector<double> dx;  // j - cx
  std::vector<double> x;   // dx / fx, on the plane at distance 1

  Columns(int firstColumn, int blocks, const CloudModel& model)
      : first(firstColumn), count(2 * blocks), dx(static_cast<std::size_t>(count)), x(dx.size()) {
    for (std::size_t q = 0; q < dx.size(); ++q) {
      dx[q] = at(static_cast<int>(q)) - model.cx;
      x[q] = dx[q] / model.fx;
    }
  }
  int at(int q) const { return first + 2 * q; }
};

// What the places of one odd row of the view gave: directions (X, Y, Z), the depth found along them in meters, 0 where
// there is none, and what ranks the points of a block by nearness.
struct SampleRow {
  std::vector<double> X, Y, Z, keys;
  std::vector<float> z;

  explicit SampleRow(int count) : X(static_cast<std::size_t>(count)), Y(X), Z(X.size(), 1.0), keys(X), z(X.size()) {}
};

// Row i of the view; dy = i - cy, y = dy / fy.
struct ViewRow {
  int i;
  double dy, y;
};

// Lifts places onto the unit sphere by the left eye's model and looks depth up where longitude and latitude fall in
// images that are taken to span pi both ways; see `unprojectRow`, which does what can be done fast.
class LonLatSampler {
public:
  LonLatSampler(const CloudImages& images, const CloudModel& model)
      : m_disparity(images.disparity),
        m_depth(images.depth),
        m_radius(model.threshold),
        m_model{model.xi,
                images.disparity.rows / pi,
                images.disparity.cols / pi,
                images.disparity.rows,
                images.disparity.cols,
                m_radius.squares()} {}

  // What a thread needs for itself.
  struct Scratch {
    std::vector<double> lambda;
    std::vector<std::int32_t> row, column;

    explicit Scratch(int count) : lambda(static_cast<std::size_t>(count)), row(lambda.size()), column(lambda.size()) {}
  };

  void sample(const ViewRow& view, const Columns& columns, Scratch& scratch, SampleRow& out) const {
    unprojectRow(columns.dx.data(), columns.x.data(), columns.count, view.dy, view.y, m_model, scratch.lambda.data(),
                 scratch.row.data(), scratch.column.data());
    for (std::size_t q = 0; q < scratch.lambda.size(); ++q) {
      const double lambda = scratch.lambda[q];
      out.X[q] = lambda * columns.x[q];
      out.Y[q] = lambda * view.y;
      out.Z[q] = lambda - m_model.xi;
      int row = scratch.row[q];
      int column = scratch.column[q];
      if (row == kUncertainPixel) {
        findPixel(columns.dx[q], view.dy, lambda, {out.X[q], out.Y[q], out.Z[q]}, row, column);
      }
      out.z[q] = has(m_disparity, row, column) && has(m_depth, row, column) && m_disparity.ptr<float>(row)[column] > 0
                     ? m_depth.ptr<float>(row)[column]
                     : 0.0F;
    }
  }

private:
  // The pixel to look up, as the standard library's functions give it.
  void findPixel(double dx, double dy, double lambda, const cv::Vec3d& ray, int& row, int& column) const {
    row = kNoPixel;
    if (m_radius.excludes(dx, dy) || std::isnan(lambda)) {
      return;
    }
    const double lon = std::acos(-ray[0]);  // NOLINT(clang-analyzer-core.CallAndMessage): the analyzer loses the ray
    const double lat = std::acos(-ray[1] / std::hypot(ray[1], ray[2]));
    row = indexBelow(lat * m_model.rowScale, m_model.rows);
    column = indexBelow(lon * m_model.columnScale, m_model.cols);
  }

  const cv::Mat& m_disparity;
  const cv::Mat& m_depth;
  Radius m_radius;
  UnprojectModel m_model;
};

struct NoScratch {
  explicit NoScratch(int) {}
};

// Pinhole, (x, y, 1) z. The look-up takes the column for the row and the row for the column. z comes from the
// disparity, z = b fx / d (infinite for d = 0), without a radius.
class PlainPinholeSampler {
public:
  using Scratch = NoScratch;

  PlainPinholeSampler(const CloudImages& images, const CloudModel& model)
      : m_disparity(images.disparity), m_bf((model.baselineMillimeters / 1000.0) * model.fx) {}

  void sample(const ViewRow& view, const Columns& columns, Scratch&, SampleRow& out) const {
    out.X = columns.x;
    std::fill(out.Y.begin(), out.Y.end(), view.y);
    for (int q = 0; q < columns.count; ++q) {
      const int j = columns.at(q);
      out.z[static_cast<std::size_t>(q)] =
          has(m_disparity, j, view.i) ? static_cast<float>(m_bf / m_disparity.ptr<float>(j)[view.i]) : 0.0F;
    }
  }

private:
  const cv::Mat& m_disparity;
  double m_bf;
};

// The same with z from the depth image, within the radius.
class ColoredPinholeSampler {
public:
  using Scratch = NoScratch;

  ColoredPinholeSampler(const CloudImages& images, const CloudModel& model)
      : m_depth(images.depth), m_radius(model.threshold) {}

  void sample(const ViewRow& view, const Columns& columns, Scratch&, SampleRow& out) const {
    out.X = columns.x;
    std::fill(out.Y.begin(), out.Y.end(), view.y);
    for (int q = 0; q < columns.count; ++q) {
      const int j = columns.at(q);
      const bool taken =
          !m_radius.excludes(columns.dx[static_cast<std::size_t>(q)], view.dy) && has(m_depth, j, view.i);
      out.z[static_cast<std::size_t>(q)] = taken ? m_depth.ptr<float>(j)[view.i] : 0.0F;
    }
  }

private:
  const cv::Mat& m_depth;
  Radius m_radius;
};

// Writes all but the nearest and the farthest of a block to `out`, nothing of a block of two or fewer; returns the end.
// The block's places are q and q + 1 of either row; its first row is `row`, its first column `column`.
CloudPoint* writeTrimmed(const SampleRow (&rows)[oddPerBlock], std::size_t q, int row, int column, CloudPoint* out) {
  constexpr std::size_t places = oddPerBlock * oddPerBlock;
  const SampleRow* const rowOf[places] = {&rows[0], &rows[0], &rows[1], &rows[1]};
  const std::size_t at[places] = {q, q + 1, q, q + 1};
  bool valid[places];
  std::size_t count = 0;
  std::size_t first = places;
  for (std::size_t k = places; k-- > 0;) {
    valid[k] = rowOf[k]->z[at[k]] > 0;
    count += valid[k] ? 1 : 0;
    first = valid[k] ? k : first;
  }
  if (count <= 2) {
    return out;
  }
  std::size_t nearest = first;
  std::size_t farthest = first;
  double smallest = 1e9;
  double largest = 0.0;
  for (std::size_t k = 0; k < places; ++k) {
    const double key = rowOf[k]->keys[at[k]];
    const bool nearer = valid[k] && key < smallest;
    smallest = nearer ? key : smallest;
    nearest = nearer ? k : nearest;
    const bool farther = valid[k] && key > largest;
    largest = farther ? key : largest;
    farthest = farther ? k : farthest;
  }
  for (std::size_t k = 0; k < places; ++k) {
    if (valid[k] && k != nearest && k != farthest) {
      const SampleRow& from = *rowOf[k];
      const float z = from.z[at[k]];
      ::new (out++) CloudPoint{cv::Vec3f(static_cast<float>(from.X[at[k]] * z), static_cast<float>(from.Y[at[k]] * z),
                                         static_cast<float>(from.Z[at[k]] * z)),
                               row + (k < oddPerBlock ? 0 : 2), column + (k % oddPerBlock == 0 ? 0 : 2)};
    }
  }
  return out;
}

// The colored form of mode 1 leaves out 5 % of the view on every side.
Span blockSpan(int extent, bool border) {
  return border ? Span{static_cast<int>(0.05 * extent), 0.95 * extent} : Span{0, static_cast<double>(extent)};
}

}  // namespace

SampledCloud::SampledCloud(std::size_t capacity)
    : m_points(static_cast<CloudPoint*>(::operator new(capacity * sizeof(CloudPoint)))) {}

void SampledCloud::Free::operator()(CloudPoint* points) const { ::operator delete(points); }

// Samples rows of blocks side by side, each into a chunk of its own, and closes the gaps between them at the end.
class CloudWriter {
public:
  // `limit`: pixels are tried only within this size.
  CloudWriter(const Span& rows, const Span& cols, cv::Size limit, const CloudModel& model)
      : m_firstRow(rows.start | 1),
        m_columns(cols.start | 1, cols.blocks(), model),
        m_rowOfBlocks(static_cast<std::size_t>(cols.blocks())),
        m_limit(limit),
        m_model(model),
        m_ends(static_cast<std::size_t>(rows.blocks())),
        m_cloud(m_ends.size() * m_rowOfBlocks * maxPerBlock) {}

  template <typename Sampler>
  SampledCloud write(const Sampler& sampler) {
    const auto blockRows = static_cast<int>(m_ends.size());
    const auto sampleRows = [&](int from, int to) {
      typename Sampler::Scratch scratch(m_columns.count);
      SampleRow rows[oddPerBlock] = {SampleRow(m_columns.count), SampleRow(m_columns.count)};
      for (int b = from; b < to; ++b) {
        const int row = m_firstRow + b * blockSize;
        for (int k = 0; k < 2; ++k) {
          sampleRow(row + 2 * k, sampler, scratch, rows[k]);
        }
        CloudPoint* out = startOf(b);
        for (std::size_t block = 0; block < m_rowOfBlocks; ++block) {
          out = writeTrimmed(rows, 2 * block, row, m_columns.at(static_cast<int>(2 * block)), out);
        }
        m_ends[static_cast<std::size_t>(b)] = out;
      }
    };
    forRows(blockRows, std::min(m_columns.count, 1 << 24) * (blockSize * blockSize / 2), sampleRows, cloudGrain);
    CloudPoint* end = m_cloud.m_points.get();
    for (int b = 0; b < blockRows; ++b) {
      CloudPoint* const start = startOf(b);
      CloudPoint* const endOfRow = m_ends[static_cast<std::size_t>(b)];
      end = end == start ? endOfRow : std::copy(start, endOfRow, end);
    }
    m_cloud.m_size = static_cast<std::size_t>(end - m_cloud.m_points.get());
    return std::move(m_cloud);
  }

private:
  CloudPoint* startOf(int blockRow) const {
    return m_cloud.m_points.get() + static_cast<std::size_t>(blockRow) * m_rowOfBlocks * maxPerBlock;
  }

  template <typename Sampler>
  void sampleRow(int i, const Sampler& sampler, typename Sampler::Scratch& scratch, SampleRow& row) const {
    if (i >= m_limit.height) {
      std::fill(row.z.begin(), row.z.end(), 0.0F);
      return;
    }
    const double dy = i - m_model.cy;
    sampler.sample({i, dy, dy / m_model.fy}, m_columns, scratch, row);
    for (int q = m_columns.count - 1; q >= 0 && m_columns.at(q) >= m_limit.width; --q) {
      row.z[static_cast<std::size_t>(q)] = 0;
    }
    keyRow(row.X.data(), row.Y.data(), row.Z.data(), row.z.data(), m_columns.count, row.keys.data());
  }

  int m_firstRow;
  Columns m_columns;
  std::size_t m_rowOfBlocks;
  cv::Size m_limit;
  const CloudModel& m_model;
  std::vector<CloudPoint*> m_ends;  // of each row of blocks
  SampledCloud m_cloud;
};

SampledCloud sampleCloud(const CloudImages& images, const CloudModel& model, CloudForm form) {
  // Only what the form and the mode look into: of the view, the plain form takes nothing but the size.
  const bool colored = form == CloudForm::colored;
  if (colored) {
    requireType(images.view, CV_8UC3);
  }
  if (colored || model.mode == 1) {
    requireType(images.depth, CV_32FC1);
  }
  requireType(images.disparity, CV_32FC1);
  if (model.mode != 1 && model.mode != 2) {
    return SampledCloud(0);
  }
  // A color is read at the pixel itself, so the colored form ends at the view's edge.
  constexpr int none = std::numeric_limits<int>::max();
  const cv::Size limit = colored ? images.view.size() : cv::Size(none, none);
  CloudWriter writer(blockSpan(images.view.rows, colored && model.mode == 1),
                     blockSpan(images.view.cols, colored && model.mode == 1), limit, model);
  if (model.mode == 1) {
    return writer.write(LonLatSampler(images, model));
  }
  return colored ? writer.write(ColoredPinholeSampler(images, model))
                 : writer.write(PlainPinholeSampler(images, model));
}

}  // namespace stereo::core
