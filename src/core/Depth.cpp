// SPDX-License-Identifier: Apache-2.0
#include "core/Depth.hpp"

#include <cmath>

#include "core/ColorMap.hpp"

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;

// Depth of disparity d in a column, both in pixels of the rectified view:
//   mode 1:  b sin(pi (a + o)) / sin(pi d / W),  a = (column - d) / W,  o = ((180 - lonLatFov) / 2) / 180
//   mode 2:  f b / d
// a and d / W are single precision, the rest is double. In any other mode the depth stays what it was.
void updateDepth(float& depth, float d, int column, const DepthModel& model) {
  if (model.mode == 1) {
    const auto W = static_cast<float>(model.W);
    const float a = (static_cast<float>(column) - d) / W;
    const double o = ((180.0 - model.lonLatFov) / 2.0) / 180.0;
    const float ratio = d / W;
    depth = static_cast<float>(model.b * std::sin(pi * (a + o)) / std::sin(pi * ratio));
  } else if (model.mode == 2) {
    depth = static_cast<float>(model.f * model.b / d);
  }
}

void zeroOutOfLimits(float& depth, const DepthModel& model) {
  if (depth > model.maxDepth || depth < model.minDepth) {
    depth = 0;
  }
}

void requireDisparity(const cv::Mat& disparity) {
  CV_Assert(disparity.empty() || (disparity.dims == 2 && disparity.type() == CV_32FC1));
}

}  // namespace

float baselineMetres(const cv::Mat& translation) {
  return translation.empty() ? 0.0F : static_cast<float>(0.001 * cv::norm(translation, cv::NORM_L2));
}

cv::Mat metricDepth(const cv::Mat& disparity, const DepthModel& model) {
  requireDisparity(disparity);
  cv::Mat metric(disparity.size(), CV_32FC1, cv::Scalar(-1.0));
  float depth = 0;
  for (int r = 0; r < disparity.rows; ++r) {
    const auto* d = disparity.ptr<float>(r);
    auto* out = metric.ptr<float>(r);
    for (int c = 0; c < disparity.cols; ++c) {
      // The cut-off compares pixels with the number of the near limit.
      if (d[c] > model.minDepth) {
        updateDepth(depth, d[c], c, model);
        zeroOutOfLimits(depth, model);
        out[c] = depth;
      }
    }
  }
  return metric;
}

DepthRange depthRange(const cv::Mat& disparity, const DepthModel& model) {
  requireDisparity(disparity);
  DepthRange range{1e11F, 0.0F};
  float depth = 0;
  for (int r = 0; r < disparity.rows; ++r) {
    const auto* d = disparity.ptr<float>(r);
    for (int c = 0; c < disparity.cols; ++c) {
      if (d[c] > model.minDepth) {
        updateDepth(depth, d[c], c, model);
        if (depth > range.max) {
          range.max = depth;
        }
        if (depth < range.min) {
          range.min = depth;
        }
      }
    }
  }
  if (range.max > model.maxDepth) {
    range.max = model.maxDepth;
  }
  if (range.min < model.minDepth) {
    range.min = model.minDepth;
  }
  return range;
}

cv::Mat paintDepth(const cv::Mat& disparity, const DepthModel& model, const DepthRange& range) {
  requireDisparity(disparity);
  cv::Mat picture = cv::Mat::zeros(disparity.size(), CV_8UC3);
  float depth = 0;
  for (int r = 0; r < disparity.rows; ++r) {
    const auto* d = disparity.ptr<float>(r);
    auto* out = picture.ptr<cv::Vec3b>(r);
    for (int c = 0; c < disparity.cols; ++c) {
      // Painted from 0 on, though the range above was taken from the near limit's number on.
      if (d[c] > 0) {
        updateDepth(depth, d[c], c, model);
        zeroOutOfLimits(depth, model);
        if (depth > 0) {
          out[c] = depthColor(range.min, range.max, depth);
        }
      }
    }
  }
  cv::flip(picture, picture, -1);
  return picture;
}

}  // namespace stereo::core
