// SPDX-License-Identifier: Apache-2.0
#include "core/Depth.hpp"

#include <cmath>
#include <cstring>
#include <mutex>

#include "core/DepthKernels.hpp"
#include "core/Rows.hpp"

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;

// Two sines a pixel are worth a thread sooner than a division is.
constexpr std::size_t angularGrain = kGrain / 8;

// Depth of disparity d in a column, both in pixels of the rectified view:
//   mode 1:  b sin(pi (a + o)) / sin(pi d / W),  a = (column - d) / W,  o = ((180 - lonLatFov) / 2) / 180
//   mode 2:  f b / d (the rows of this mode are done by kernels)
// a and d / W are single precision, the rest is double. Any other mode has no depth: 0.
class AngularDepth {
public:
  explicit AngularDepth(const DepthModel& model)
      : m_isAngular(model.mode == 1),
        m_b(model.b),
        m_W(static_cast<float>(model.W)),
        m_o(((180.0 - model.lonLatFov) / 2.0) / 180.0) {}

  float operator()(float d, int column) const {
    if (!m_isAngular) {
      return 0;
    }
    const float a = (static_cast<float>(column) - d) / m_W;
    const float ratio = d / m_W;
    return static_cast<float>(m_b * std::sin(pi * (a + m_o)) / std::sin(pi * ratio));
  }

private:
  bool m_isAngular;
  float m_b;
  float m_W;
  double m_o;
};

double focalBaseline(const DepthModel& model) { return model.f * model.b; }

// The cut-off compares pixels with the number of the near limit.
DepthLimits limitsOf(const DepthModel& model) { return {model.minDepth, model.minDepth, model.maxDepth}; }

float zeroOutOfLimits(float depth, const DepthLimits& limits) {
  return depth > limits.farthest || depth < limits.nearest ? 0.0F : depth;
}

void requireFloats(const cv::Mat& image) { CV_Assert(image.empty() || (image.dims == 2 && image.type() == CV_32FC1)); }

std::size_t grainOf(const DepthModel& model) { return model.mode == 1 ? angularGrain : kGrain; }

// `measurePinholeRow` for the other modes; sines only where somebody looks at the result.
void measureAngularRow(const float* d, int count, const AngularDepth& depthOf, const DepthLimits& limits, float* depths,
                       DepthRange& range) {
  for (int c = 0; c < count; ++c) {
    const bool counts = d[c] > limits.cutOff;
    depths[c] = 0;
    if (!counts && !(d[c] > 0)) {
      continue;
    }
    const float z = depthOf(d[c], c);
    if (counts && z > range.max) {
      range.max = z;
    }
    if (counts && z < range.min) {
      range.min = z;
    }
    if (d[c] > 0) {
      depths[c] = zeroOutOfLimits(z, limits);
    }
  }
}

// Pixels from packed colours, last one first. Each is stored as four bytes, of which the next one covers the fourth.
void storeReversed(const std::uint32_t* colours, int count, cv::Vec3b* out) {
  auto* bytes = reinterpret_cast<unsigned char*>(out);
  for (int k = count - 1; k > 0; --k, bytes += 3) {
    const unsigned char colour[4] = {static_cast<unsigned char>(colours[k]),
                                     static_cast<unsigned char>(colours[k] >> 8),
                                     static_cast<unsigned char>(colours[k] >> 16), 0};
    std::memcpy(bytes, colour, 4);
  }
  for (int channel = 0; channel < 3; ++channel) {
    bytes[channel] = static_cast<unsigned char>(colours[0] >> (8 * channel));
  }
}

}  // namespace

float baselineMetres(const cv::Mat& translation) {
  return translation.empty() ? 0.0F : static_cast<float>(0.001 * cv::norm(translation, cv::NORM_L2));
}

void metricDepth(const cv::Mat& disparity, const DepthModel& model, cv::Mat& metric) {
  requireFloats(disparity);
  metric.create(disparity.size(), CV_32FC1);
  const DepthLimits limits = limitsOf(model);
  const AngularDepth depthOf(model);
  const auto rows = [&](int from, int to) {
    for (int r = from; r < to; ++r) {
      const auto* d = disparity.ptr<float>(r);
      auto* out = metric.ptr<float>(r);
      if (model.mode == 2) {
        metricPinholeRow(d, disparity.cols, focalBaseline(model), limits, out);
        continue;
      }
      for (int c = 0; c < disparity.cols; ++c) {
        out[c] = d[c] > limits.cutOff ? zeroOutOfLimits(depthOf(d[c], c), limits) : -1.0F;
      }
    }
  };
  forRows(disparity.rows, disparity.cols, rows, grainOf(model));
}

DepthRange measureDepths(const cv::Mat& disparity, const DepthModel& model, cv::Mat& depths) {
  requireFloats(disparity);
  depths.create(disparity.size(), CV_32FC1);
  const DepthLimits limits = limitsOf(model);
  const AngularDepth depthOf(model);
  DepthRange range{1e11F, 0.0F};
  std::mutex rangeMutex;
  const auto rows = [&](int from, int to) {
    DepthRange met{1e11F, 0.0F};
    RangeLanes lanes(met.min, met.max);
    for (int r = from; r < to; ++r) {
      const auto* d = disparity.ptr<float>(r);
      auto* out = depths.ptr<float>(r);
      if (model.mode == 2) {
        measurePinholeRow(d, disparity.cols, focalBaseline(model), limits, out, lanes);
      } else {
        measureAngularRow(d, disparity.cols, depthOf, limits, out, met);
      }
    }
    lanes.widen(met.min, met.max);
    const std::lock_guard lock(rangeMutex);
    range.min = std::min(range.min, met.min);
    range.max = std::max(range.max, met.max);
  };
  forRows(disparity.rows, disparity.cols, rows, grainOf(model));
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
    cv::AutoBuffer<std::uint32_t> colours(static_cast<std::size_t>(depths.cols));
    for (int r = from; r < to; ++r) {
      colourRow(depths.ptr<float>(r), depths.cols, range.min, range.max, colours.data());
      storeReversed(colours.data(), depths.cols, picture.ptr<cv::Vec3b>(depths.rows - 1 - r));
    }
  });
}

}  // namespace stereo::core
