// SPDX-License-Identifier: Apache-2.0
// Metric and colored depth, plain form.
#include "bench/baseline/PlainDepth.hpp"

#include <cmath>

namespace stereo::baseline {

namespace {

// In other modes than 1 and 2, the depth of the previous pixel stays.
void evaluateDepth(float d, int column, const core::DepthModel& model, float& depth) {
  if (model.mode == 1) {
    const float W = static_cast<float>(model.W);
    const float a = (static_cast<float>(column) - d) / W;
    const double o = ((180.0 - model.lonLatFov) / 2.0) / 180.0;
    depth = static_cast<float>(model.b * std::sin(CV_PI * (a + o)) / std::sin(CV_PI * (d / W)));
  } else if (model.mode == 2) {
    depth = static_cast<float>(model.f * model.b / d);
  }
}

// Conversion to an integer, then the low eight bits; 0 outside the range of a 32-bit integer.
unsigned char channel(float value) {
  const float rounded = std::round(value);
  if (!(rounded >= -2147483648.0F && rounded < 2147483648.0F)) {
    return 0;
  }
  return static_cast<unsigned char>(static_cast<int>(rounded));
}

cv::Vec3b color(float lo, float hi, float v) {
  const float half = (hi - lo) / 2;
  const float mid = lo + half;
  float B = 0;
  float G = 0;
  float R = 0;
  if (v <= mid) {
    B = 255 * ((hi - v) / (mid - lo));
    G = 255 * ((v - lo) / (mid - lo));
  } else {
    G = 255 * ((hi - v) / (hi - mid));
    R = 255 * ((v - lo) / (hi - mid));
  }
  return cv::Vec3b(channel(B), channel(G), channel(R));
}

}  // namespace

void metricDepth(const cv::Mat& disparity, const core::DepthModel& model, cv::Mat& depth) {
  depth = cv::Mat(disparity.rows, disparity.cols, CV_32FC1, cv::Scalar(-1.0));
  float meters = 0;
  for (int r = 0; r < disparity.rows; ++r) {
    for (int c = 0; c < disparity.cols; ++c) {
      const float d = disparity.at<float>(r, c);
      if (d > model.minDepth) {
        evaluateDepth(d, c, model, meters);
        if (meters > model.maxDepth || meters < model.minDepth) {
          meters = 0;
        }
        depth.at<float>(r, c) = meters;
      }
    }
  }
}

core::DepthRange depthRange(const cv::Mat& disparity, const core::DepthModel& model) {
  float max = 0.0F;
  float min = 1e11F;
  float meters = 0;
  for (int r = 0; r < disparity.rows; ++r) {
    for (int c = 0; c < disparity.cols; ++c) {
      const float d = disparity.at<float>(r, c);
      if (d > model.minDepth) {
        evaluateDepth(d, c, model, meters);
        if (meters > max) {
          max = meters;
        }
        if (meters < min) {
          min = meters;
        }
      }
    }
  }
  if (max > model.maxDepth) {
    max = model.maxDepth;
  }
  if (min < model.minDepth) {
    min = model.minDepth;
  }
  return {min, max};
}

void coloredDepth(const cv::Mat& disparity, const core::DepthModel& model, cv::Mat& picture) {
  picture = cv::Mat(disparity.rows, disparity.cols, CV_8UC3, cv::Scalar(0, 0, 0));
  const core::DepthRange range = baseline::depthRange(disparity, model);
  float meters = 0;
  for (int r = 0; r < disparity.rows; ++r) {
    for (int c = 0; c < disparity.cols; ++c) {
      const float d = disparity.at<float>(r, c);
      if (!(d > 0)) {
        continue;
      }
      evaluateDepth(d, c, model, meters);
      if (meters > model.maxDepth || meters < model.minDepth) {
        meters = 0;
      }
      if (meters > 0) {
        picture.at<cv::Vec3b>(r, c) = color(range.min, range.max, meters);
      }
    }
  }
  cv::flip(picture, picture, -1);
}

}  // namespace stereo::baseline
