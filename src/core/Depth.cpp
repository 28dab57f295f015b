// SPDX-License-Identifier: Apache-2.0
// From disparity to metric depth and to its false-color picture.
#include "src/core/Depth.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <mutex>

#include "src/core/DepthKernels.hpp"
#include "src/core/OutputReuse.hpp"
#include "src/core/Rows.hpp"

namespace stereo::core {

namespace {

// Depth of disparity d in a column, both in pixels of the rectified view:
//   mode 1:  b sin(pi (a + o)) / sin(pi d / W),  a = (column - d) / W,  o = ((180 - lonLatFov) / 2) / 180
//   mode 2:  f b / d
// a and d / W are single precision, the rest is double. Any other mode has no depth: 0.
class RowsOfDepth {
public:
  RowsOfDepth(const DepthModel& model, int cols)
      : m_mode(model.mode),
        m_cols(cols),
        m_fb(model.f * model.b),
        m_angular{model.b, static_cast<float>(model.W), ((180.0 - model.lonLatFov) / 2.0) / 180.0},
        // The cutoff compares pixels with the number of the near limit.
        m_limits{model.minDepth, model.minDepth, model.maxDepth},
        m_z(model.mode == 2 ? 0 : static_cast<std::size_t>(cols)) {
    std::fill_n(m_z.data(), m_z.size(), 0.0F);
  }

  void metric(const float* d, float* out) {
    if (m_mode == 2) {
      metricPinholeRow(d, m_fb, m_cols, m_limits, out);
    } else {
      metricRow(d, depthsOf(d), m_cols, m_limits, out);
    }
  }

  void measure(const float* d, float* depths, RangeLanes& lanes) {
    if (m_mode == 2) {
      measurePinholeRow(d, m_fb, m_cols, m_limits, depths, lanes);
    } else {
      measureRow(d, depthsOf(d), m_cols, m_limits, depths, lanes);
    }
  }

private:
  const float* depthsOf(const float* d) {
    if (m_mode == 1) {
      angularRow(d, m_cols, m_angular, m_z.data());
    }
    return m_z.data();
  }

  int m_mode;
  int m_cols;
  double m_fb;
  AngularModel m_angular;
  DepthLimits m_limits;
  cv::AutoBuffer<float> m_z;
};

// One division per pixel is fast, two sines are not.
std::size_t grainOf(const DepthModel& model) { return model.mode == 2 ? coarseGrain : fineGrain; }

void requireFloats(const cv::Mat& image) { CV_Assert(image.empty() || (image.dims == 2 && image.type() == CV_32FC1)); }

// Stores packed colors as pixels in reverse order. Each takes four bytes; the next one overwrites the fourth.
void storeReversed(const std::uint32_t* colors, int count, cv::Vec3b* out) {
  auto* bytes = reinterpret_cast<unsigned char*>(out);
  static_assert(std::endian::native == std::endian::little, "blue is the first byte of a packed color");
  for (int k = count - 1; k > 0; --k, bytes += 3) {
    std::memcpy(bytes, &colors[k], 4);
  }
  for (int channel = 0; channel < 3; ++channel) {
    bytes[channel] = static_cast<unsigned char>(colors[0] >> (8 * channel));
  }
}

}  // namespace

double baselineMillimeters(const cv::Mat& translation) {
  if (translation.empty()) {
    return 0.0;
  }
  if (translation.type() != CV_64FC1 || translation.dims != 2 || translation.total() != 3) {
    return cv::norm(translation, cv::NORM_L2);
  }
  // The sum as OpenCV computes it without fused multiply-add. On 64-bit Arm, OpenCV is compiled with it.
  double squared = 0.0;
  for (int row = 0; row < translation.rows; ++row) {
    for (int column = 0; column < translation.cols; ++column) {
      const double component = translation.at<double>(row, column);
      squared += component * component;
    }
  }
  return std::sqrt(squared);
}

float baselineMeters(const cv::Mat& translation) {
  return static_cast<float>(0.001 * baselineMillimeters(translation));
}

void metricDepth(const cv::Mat& disparity, const DepthModel& model, cv::Mat& metric) {
  requireFloats(disparity);
  metric.create(disparity.size(), CV_32FC1);
  forRows(
      disparity.rows, disparity.cols,
      [&](int from, int to) {
        RowsOfDepth row(model, disparity.cols);
        for (int r = from; r < to; ++r) {
          row.metric(disparity.ptr<float>(r), metric.ptr<float>(r));
        }
      },
      grainOf(model));
}

DepthRange measureDepths(const cv::Mat& disparity, const DepthModel& model, cv::Mat& depths) {
  requireFloats(disparity);
  depths.create(disparity.size(), CV_32FC1);
  DepthRange range{1e11F, 0.0F};
  std::mutex rangeMutex;
  forRows(
      disparity.rows, disparity.cols,
      [&](int from, int to) {
        RowsOfDepth row(model, disparity.cols);
        DepthRange met{1e11F, 0.0F};
        RangeLanes lanes(met.min, met.max);
        for (int r = from; r < to; ++r) {
          row.measure(disparity.ptr<float>(r), depths.ptr<float>(r), lanes);
        }
        lanes.widen(met.min, met.max);
        const std::lock_guard lock(rangeMutex);
        range.min = std::min(range.min, met.min);
        range.max = std::max(range.max, met.max);
      },
      grainOf(model));
  if (range.max > model.maxDepth) {
    range.max = model.maxDepth;
  }
  if (range.min < model.minDepth) {
    range.min = model.minDepth;
  }
  return range;
}

void paintDepths(const cv::Mat& depths, const DepthRange& range, cv::Mat& picture) {
  requireFloats(depths);
  picture.create(depths.size(), CV_8UC3);
  if (depths.empty()) {
    return;
  }
  forRows(depths.rows, depths.cols, [&](int from, int to) {
    cv::AutoBuffer<std::uint32_t> colors(static_cast<std::size_t>(depths.cols));
    for (int r = from; r < to; ++r) {
      colorRow(depths.ptr<float>(r), depths.cols, range.min, range.max, colors.data());
      storeReversed(colors.data(), depths.cols, picture.ptr<cv::Vec3b>(depths.rows - 1 - r));
    }
  });
}

void writeMetricDepth(const cv::Mat& disparity, const DepthModel& model, cv::Mat& depth) {
  if (&disparity == &depth || overlap(disparity, depth)) {
    cv::Mat metric;
    metricDepth(disparity, model, metric);
    depth = metric;
    return;
  }
  writeInto(depth, [&](cv::Mat& out) { metricDepth(disparity, model, out); });
}

void writeDepthPicture(const cv::Mat& disparity, const DepthModel& model, cv::Mat& depths, cv::Mat& picture) {
  const DepthRange range = measureDepths(disparity, model, depths);
  writeInto(picture, [&](cv::Mat& out) { paintDepths(depths, range, out); });
}

}  // namespace stereo::core
