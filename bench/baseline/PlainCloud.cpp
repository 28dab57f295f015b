// SPDX-License-Identifier: Apache-2.0
// Point clouds, plain form.
#include "bench/baseline/PlainCloud.hpp"

#include <cmath>
#include <cstddef>

namespace stereo::baseline {

namespace {

struct Block {
  std::vector<double> keys;
  std::vector<cv::Vec3f> points;
  std::vector<cv::Vec3b> colors;
};

// To be tested before a conversion to an integer: angles may be NaN.
bool inside(const cv::Mat& image, double row, double column) {
  return row >= 0 && row < image.rows && column >= 0 && column < image.cols;
}

bool outsideRadius(int i, int j, const core::CloudModel& model) {
  return std::hypot(j - model.cx, i - model.cy) > model.threshold;
}

void append(Block& block, double x, double y, double w, float z) {
  block.keys.push_back(std::sqrt(z * (x * x) + z * (y * y) + z * (w * w)));
  block.points.push_back(cv::Vec3f(static_cast<float>(x * z), static_cast<float>(y * z), static_cast<float>(w * z)));
}

// Longitude-latitude: the pixel's ray by the unified model, its depth from the pixel that the ray's two angles fall
// into. True if there is a depth and the point was added.
bool unproject(int i, int j, const core::CloudImages& images, const core::CloudModel& model, Block& block) {
  if (outsideRadius(i, j, model)) {
    return false;
  }
  const double kc = images.disparity.cols / CV_PI;
  const double kr = images.disparity.rows / CV_PI;
  const double x = (j - model.cx) / model.fx;
  const double y = (i - model.cy) / model.fy;
  const double r2 = x * x + y * y;
  const double lambda = (model.xi + std::sqrt(1 + (1 - model.xi * model.xi) * r2)) / (1 + r2);
  if (std::isnan(lambda)) {
    return false;
  }
  const double X = lambda * x;
  const double Y = lambda * y;
  const double Z = lambda - model.xi;
  const double column = std::acos(-X) * kc;
  const double row = std::acos(-Y / std::hypot(Y, Z)) * kr;
  if (!inside(images.disparity, row, column) || !inside(images.depth, row, column)) {
    return false;
  }
  const float d = images.disparity.at<float>(static_cast<int>(row), static_cast<int>(column));
  const float z = images.depth.at<float>(static_cast<int>(row), static_cast<int>(column));
  if (!(d > 0) || !(z > 0)) {
    return false;
  }
  append(block, X, Y, Z, z);
  return true;
}

// Perspective: the lookups take the column for the row and the row for the column.
bool project(int i, int j, const core::CloudImages& images, const core::CloudModel& model, bool colored, Block& block) {
  float z = 0;
  if (colored) {
    if (outsideRadius(i, j, model) || !inside(images.depth, j, i)) {
      return false;
    }
    z = images.depth.at<float>(j, i);
  } else {
    if (!inside(images.disparity, j, i)) {
      return false;
    }
    z = static_cast<float>((model.baselineMillimeters / 1000.0) * model.fx / images.disparity.at<float>(j, i));
  }
  if (!(z > 0)) {
    return false;
  }
  append(block, (j - model.cx) / model.fx, (i - model.cy) / model.fy, 1.0, z);
  return true;
}

void sample(int r0, int c0, const core::CloudImages& images, const core::CloudModel& model, bool colored,
            Block& block) {
  for (int i = r0; i < r0 + 4; ++i) {
    for (int j = c0; j < c0 + 4; ++j) {
      if (i % 2 == 0 || j % 2 == 0) {
        continue;
      }
      if (colored && !inside(images.view, i, j)) {
        continue;
      }
      const bool added =
          model.mode == 1 ? unproject(i, j, images, model, block) : project(i, j, images, model, colored, block);
      if (added && colored) {
        block.colors.push_back(images.view.at<cv::Vec3b>(i, j));
      }
    }
  }
}

// Calls `keep` with the index of every point of the block except the nearest and the farthest, in order.
template <typename Keep>
void trim(const Block& block, Keep keep) {
  if (block.keys.size() <= 2) {
    return;
  }
  double smallest = 1e9;
  double largest = 0.0;
  std::size_t nearest = 0;
  std::size_t farthest = 0;
  for (std::size_t k = 0; k < block.keys.size(); ++k) {
    if (block.keys[k] < smallest) {
      smallest = block.keys[k];
      nearest = k;
    }
    if (block.keys[k] > largest) {
      largest = block.keys[k];
      farthest = k;
    }
  }
  for (std::size_t k = 0; k < block.keys.size(); ++k) {
    if (k != nearest && k != farthest) {
      keep(k);
    }
  }
}

}  // namespace

void plainCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<cv::Vec3f>& points) {
  if (model.mode != 1 && model.mode != 2) {
    return;
  }
  for (int r0 = 0; r0 < images.view.rows; r0 += 4) {
    for (int c0 = 0; c0 < images.view.cols; c0 += 4) {
      Block block;
      sample(r0, c0, images, model, false, block);
      trim(block, [&](std::size_t k) { points.push_back(block.points[k]); });
    }
  }
}

void coloredCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<PCL>& points) {
  if (model.mode != 1 && model.mode != 2) {
    return;
  }
  // Only here, and only in mode 1, 5 % of the view are left out on every side.
  const bool border = model.mode == 1;
  const int firstRow = border ? static_cast<int>(0.05 * images.view.rows) : 0;
  const int firstColumn = border ? static_cast<int>(0.05 * images.view.cols) : 0;
  const double endRow = border ? 0.95 * images.view.rows : images.view.rows;
  const double endColumn = border ? 0.95 * images.view.cols : images.view.cols;
  for (int r0 = firstRow; r0 < endRow; r0 += 4) {
    for (int c0 = firstColumn; c0 < endColumn; c0 += 4) {
      Block block;
      sample(r0, c0, images, model, true, block);
      trim(block, [&](std::size_t k) { points.push_back({block.points[k], block.colors[k]}); });
    }
  }
}

}  // namespace stereo::baseline
