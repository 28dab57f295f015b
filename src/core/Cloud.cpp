// SPDX-License-Identifier: Apache-2.0
#include "core/Cloud.hpp"

#include <cmath>
#include <cstddef>
#include <optional>

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;
constexpr int blockSize = 4;

struct Candidate {
  double key;  // ranks the points of a block by nearness
  CloudPoint point;
};

// Rows or columns at which blocks start, in [start, end).
struct Span {
  int start;
  double end;
};

void requireType(const cv::Mat& image, int type) {
  CV_Assert(image.empty() || (image.dims == 2 && image.type() == type));
}

// Element (row, column) if the image has it.
std::optional<float> lookUp(const cv::Mat& image, int row, int column) {
  if (row < 0 || row >= image.rows || column < 0 || column >= image.cols) {
    return std::nullopt;
  }
  return image.at<float>(row, column);
}

// Integer part of a non-negative value below `limit`; -1, which no image has, for anything else.
int indexBelow(double value, int limit) { return value >= 0 && value < limit ? static_cast<int>(value) : -1; }

// The depth multiplies each squared component once: sqrt(z x^2 + z y^2 + z z'^2) for the direction (x, y, z').
double rankingKey(double x, double y, double zDirection, float z) {
  return std::sqrt(z * (x * x) + z * (y * y) + z * (zDirection * zDirection));
}

Candidate candidateAt(int i, int j, double X, double Y, double Z, float z) {
  return {rankingKey(X, Y, Z, z),
          {cv::Vec3f(static_cast<float>(X * z), static_cast<float>(Y * z), static_cast<float>(Z * z)), i, j}};
}

bool outsideRadius(int i, int j, const CloudModel& model) {
  return std::hypot(j - model.cx, i - model.cy) > model.threshold;
}

// Lifts the pixel onto the unit sphere by the left eye's model,
//   x = (j - cx) / fx,  y = (i - cy) / fy,  r2 = x^2 + y^2,  lambda = (xi + sqrt(1 + (1 - xi^2) r2)) / (1 + r2),
//   (X, Y, Z) = (lambda x, lambda y, lambda - xi),
// and looks depth up where the ray's longitude acos(-X) and latitude acos(-Y / |(Y, Z)|) fall in images that are taken
// to span pi both ways.
std::optional<Candidate> liftedCandidate(int i, int j, const CloudImages& images, const CloudModel& model) {
  if (outsideRadius(i, j, model)) {
    return std::nullopt;
  }
  const double x = (j - model.cx) / model.fx;
  const double y = (i - model.cy) / model.fy;
  const double r2 = x * x + y * y;
  const double lambda = (model.xi + std::sqrt(1 + (1 - model.xi * model.xi) * r2)) / (1 + r2);
  if (std::isnan(lambda)) {
    return std::nullopt;
  }
  const double X = lambda * x;
  const double Y = lambda * y;
  const double Z = lambda - model.xi;
  const double lon = std::acos(-X);
  const double lat = std::acos(-Y / std::hypot(Y, Z));
  const int row = indexBelow(lat * (images.disparity.rows / pi), images.disparity.rows);
  const int column = indexBelow(lon * (images.disparity.cols / pi), images.disparity.cols);
  const auto d = lookUp(images.disparity, row, column);
  const auto z = lookUp(images.depth, row, column);
  if (!d || !z || !(*d > 0 && *z > 0)) {
    return std::nullopt;
  }
  return candidateAt(i, j, X, Y, Z, *z);
}

// Pinhole: ((j - cx) / fx, (i - cy) / fy, 1) z. The look-up takes the column for the row and the row for the column.
// The plain form takes z from the disparity, z = b fx / d (infinite for d = 0), and knows no radius.
std::optional<Candidate> pinholeCandidate(int i, int j, const CloudImages& images, const CloudModel& model,
                                          CloudForm form) {
  float z = 0;
  if (form == CloudForm::plain) {
    const auto d = lookUp(images.disparity, j, i);
    if (!d) {
      return std::nullopt;
    }
    z = static_cast<float>((model.baselineMillimetres / 1000.0) * model.fx / *d);
  } else {
    if (outsideRadius(i, j, model)) {
      return std::nullopt;
    }
    z = lookUp(images.depth, j, i).value_or(0.0F);
  }
  if (!(z > 0)) {
    return std::nullopt;
  }
  return candidateAt(i, j, (j - model.cx) / model.fx, (i - model.cy) / model.fy, 1.0, z);
}

void appendTrimmed(const Candidate* block, std::size_t count, std::vector<CloudPoint>& cloud) {
  if (count <= 2) {
    return;
  }
  std::size_t nearest = 0;
  std::size_t farthest = 0;
  double smallest = 1e9;
  double largest = 0.0;
  for (std::size_t k = 0; k < count; ++k) {
    if (block[k].key < smallest) {
      smallest = block[k].key;
      nearest = k;
    }
    if (block[k].key > largest) {
      largest = block[k].key;
      farthest = k;
    }
  }
  for (std::size_t k = 0; k < count; ++k) {
    if (k != nearest && k != farthest) {
      cloud.push_back(block[k].point);
    }
  }
}

// The coloured form of mode 1 leaves out 5 % of the view on every side.
Span blockSpan(int extent, bool border) {
  return border ? Span{static_cast<int>(0.05 * extent), 0.95 * extent} : Span{0, static_cast<double>(extent)};
}

}  // namespace

std::vector<CloudPoint> sampleCloud(const CloudImages& images, const CloudModel& model, CloudForm form) {
  // Only what the form and the mode look into: of the view, the plain form takes nothing but the size.
  const bool coloured = form == CloudForm::coloured;
  if (coloured) {
    requireType(images.view, CV_8UC3);
  }
  if (coloured || model.mode == 1) {
    requireType(images.depth, CV_32FC1);
  }
  requireType(images.disparity, CV_32FC1);
  std::vector<CloudPoint> cloud;
  if (model.mode != 1 && model.mode != 2) {
    return cloud;
  }
  const Span rows = blockSpan(images.view.rows, coloured && model.mode == 1);
  const Span cols = blockSpan(images.view.cols, coloured && model.mode == 1);
  for (int r0 = rows.start; r0 < rows.end; r0 += blockSize) {
    for (int c0 = cols.start; c0 < cols.end; c0 += blockSize) {
      Candidate block[blockSize];  // at most two odd rows by two odd columns
      std::size_t count = 0;
      for (int i = r0 | 1; i < r0 + blockSize; i += 2) {
        for (int j = c0 | 1; j < c0 + blockSize; j += 2) {
          // A colour is read at the pixel itself, so the coloured form ends at the view's edge.
          if (coloured && (i >= images.view.rows || j >= images.view.cols)) {
            continue;
          }
          const auto candidate =
              model.mode == 1 ? liftedCandidate(i, j, images, model) : pinholeCandidate(i, j, images, model, form);
          if (candidate) {
            block[count++] = *candidate;
          }
        }
      }
      appendTrimmed(block, count, cloud);
    }
  }
  return cloud;
}

}  // namespace stereo::core
