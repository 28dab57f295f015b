// SPDX-License-Identifier: Apache-2.0
// Samples point clouds.
#include "src/core/Cloud.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "src/core/CloudKernels.hpp"
#include "src/core/CloudSamplers.hpp"
#include "src/core/Rows.hpp"

namespace stereo::core {

namespace {

constexpr int blockSize = 4;
constexpr std::size_t oddPerBlock = 2;                              // odd rows, and odd columns, in any four
constexpr std::size_t maxPerBlock = oddPerBlock * oddPerBlock - 1;  // one point may be both nearest and farthest
constexpr std::size_t cloudGrain = fineGrain / 2;  // pixels of the view, a quarter of which are sampled

// Rows or columns at which blocks start, in [start, end).
struct Span {
  int start;
  double end;

  int blocks() const { return start < end ? static_cast<int>(std::ceil((end - start) / blockSize)) : 0; }
};

void requireType(const cv::Mat& image, int type) {
  CV_Assert(image.empty() || (image.dims == 2 && image.type() == type));
}

// Writes all points of a block but the nearest and the farthest to `out`, nothing if there are two or fewer; returns
// the end. The block's samples are q and q + 1 of both rows; its first row is `row`, its first column `column`.
CloudPoint* writeTrimmed(const SampleRow (&rows)[oddPerBlock], std::size_t q, int row, int column, CloudPoint* out) {
  constexpr std::size_t samples = oddPerBlock * oddPerBlock;
  const SampleRow* const rowOf[samples] = {&rows[0], &rows[0], &rows[1], &rows[1]};
  const std::size_t at[samples] = {q, q + 1, q, q + 1};
  bool valid[samples];
  std::size_t count = 0;
  std::size_t first = samples;
  for (std::size_t k = samples; k-- > 0;) {
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
  for (std::size_t k = 0; k < samples; ++k) {
    const double key = rowOf[k]->keys[at[k]];
    const bool nearer = valid[k] && key < smallest;
    smallest = nearer ? key : smallest;
    nearest = nearer ? k : nearest;
    const bool farther = valid[k] && key > largest;
    largest = farther ? key : largest;
    farthest = farther ? k : farthest;
  }
  for (std::size_t k = 0; k < samples; ++k) {
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

// Samples rows of blocks in parallel, each into its own part of the memory, and closes the gaps at the end.
class CloudWriter {
public:
  // `limit`: only pixels within this size are sampled.
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
  // Check only what the form and the mode read: the plain form uses nothing of the view but its size.
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
