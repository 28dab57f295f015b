// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>

#include <opencv2/imgproc.hpp>

#include "StereoCamera.hpp"
#include "src/core/Cloud.hpp"
#include "src/core/Depth.hpp"
#include "src/core/RectifyMap.hpp"
#include "tests/campaigns/arm/Results.hpp"

namespace stereo::arm {

namespace {

constexpr double pi = 3.141592653589793;
const cv::Size mapSize(232, 200);

// Numbers that depend on nothing but integer arithmetic.
class Draw {
public:
  explicit Draw(std::uint32_t seed) : m_engine(seed) {}
  int below(int limit) { return static_cast<int>(m_engine() % static_cast<std::uint32_t>(limit)); }
  cv::Mat picture(cv::Size size) {
    cv::Mat image(size, CV_8UC3);
    for (std::size_t k = 0; k < image.total() * 3; ++k) {
      image.data[k] = static_cast<unsigned char>(below(256));
    }
    return image;
  }

private:
  std::mt19937 m_engine;
};

// Disparity in sixteenths of a pixel, -1 for a tenth; `odd`: now and then what no matcher gives.
cv::Mat drawnDisparity(cv::Size size, Draw& draw, bool odd) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<float> oddities = {
      nan,   infinity, -infinity, 0.0F,    -0.0F,  std::numeric_limits<float>::denorm_min(),
      1e30F, -1e30F,   0.05F,     0.0501F, 231.5F, 1e-20F};
  cv::Mat disparity(size, CV_32FC1);
  for (int row = 0; row < size.height; ++row) {
    for (int column = 0; column < size.width; ++column) {
      float d = draw.below(10) == 0 ? -1.0F : static_cast<float>(draw.below(512)) / 16.0F;
      if (odd && draw.below(20) == 0) {
        d = oddities[static_cast<std::size_t>(draw.below(static_cast<int>(oddities.size())))];
      }
      disparity.at<float>(row, column) = d;
    }
  }
  return disparity;
}

template <typename Function>
std::vector<double> over(double from, double to, int count, const Function& function) {
  std::vector<double> values(static_cast<std::size_t>(count));
  for (int k = 0; k < count; ++k) {
    values[static_cast<std::size_t>(k)] = function(from + (to - from) * k / count);
  }
  return values;
}

void append(std::vector<double>& all, const cv::Mat& matrix) {
  all.insert(all.end(), matrix.begin<double>(), matrix.end<double>());
}

}  // namespace

std::vector<Calibration> readCalibrations(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<Calibration> all;
  while (in.peek() != std::ifstream::traits_type::eof()) {
    Calibration one = {cv::Mat(3, 3, CV_64F), cv::Mat(1, 4, CV_64F), cv::Mat(1, 1, CV_64F), cv::Mat(3, 3, CV_64F),
                       cv::Mat(3, 1, CV_64F)};
    for (cv::Mat& matrix : one) {
      in.read(matrix.ptr<char>(), static_cast<std::streamsize>(matrix.total() * sizeof(double)));
    }
    if (!in) {
      break;
    }
    all.push_back(one);
  }
  if (all.empty() || in.fail()) {
    throw std::runtime_error("not a file of calibrations: " + path);
  }
  return all;
}

void writeIngredients(const std::vector<Calibration>& calibrations, const Writer& out) {
  constexpr int many = 200000;
  out.write("ingredient-sin", over(0, 2 * pi, many, [](double x) { return std::sin(x); }));
  out.write("ingredient-cos", over(0, pi, many, [](double x) { return std::cos(x); }));
  out.write("ingredient-tan", over(0.5, 1.3, many, [](double x) { return std::tan(x); }));
  out.write("ingredient-acos", over(-1, 1, many, [](double x) { return std::acos(x); }));
  out.write("ingredient-hypot", over(0, 300, many, [](double x) { return std::hypot(x, 171.25); }));
  std::vector<double> inverses;
  std::vector<double> products;
  std::vector<double> norms;
  for (const Calibration& each : calibrations) {
    append(inverses, each[0].inv());
    append(inverses, each[3].inv());
    append(products, cv::Mat(each[0] * each[3]));
    for (const cv::Mat& matrix : {each[3], each[4]}) {
      for (int r = 0; r < matrix.rows; ++r) {
        norms.push_back(cv::norm(matrix.row(r) * 60.0, cv::NORM_L2));
      }
    }
  }
  out.write("ingredient-inverse", inverses);
  out.write("ingredient-product", products);
  out.write("ingredient-norm", norms);
  // Positions outside any image, and none at all: maps of absurd calibrations hold such.
  constexpr float infinity = std::numeric_limits<float>::infinity();
  const cv::Mat nowhere = (cv::Mat_<float>(1, 8) << std::numeric_limits<float>::quiet_NaN(), infinity, -infinity, 1e20F,
                           -1e20F, 40000.0F, -40000.0F, 3e6F);
  const cv::Mat ones(4, 4, CV_8UC3, cv::Scalar::all(255));
  cv::Mat seen;
  cv::remap(ones, seen, nowhere, cv::Mat::zeros(nowhere.size(), CV_32FC1), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
  out.write("ingredient-remap-nowhere", seen);
}

void writeMaps(const std::vector<Calibration>& calibrations, const Writer& out) {
  Draw draw(3);
  std::vector<double> matrices;
  std::vector<float> baselines;
  std::vector<double> millimeters;
  for (std::size_t k = 0; k < calibrations.size(); ++k) {
    const Calibration& each = calibrations[k];
    const cv::Mat pinhole = core::perspectiveCameraMatrix(mapSize, 60 + draw.below(8000) / 100.0);
    const cv::Mat lonLat = core::lonLatCameraMatrix(mapSize, 100 + draw.below(8000) / 64.0);
    append(matrices, pinhole);
    append(matrices, lonLat);
    baselines.push_back(core::baselineMeters(each[4]));
    for (int r = 0; r < 3; ++r) {
      millimeters.push_back(core::baselineMillimeters(each[3].row(r) * 60.0));
    }
    for (const int mode : {0, 1, 2}) {
      cv::Mat columns;
      cv::Mat rows;
      initRectifyMap(each[0], each[1], each[3], mode == 1 ? lonLat : pinhole, each[2].at<double>(0, 0),
                     draw.below(64) / 32.0, mapSize, mode, columns, rows);
      const std::string name = "map-mode" + std::to_string(mode) + "-" + std::to_string(k);
      out.write(name + "-columns", columns);
      out.write(name + "-rows", rows);
    }
  }
  out.write("view-matrices", matrices);
  out.write("baselines", baselines);
  out.write("baselines-millimetres", millimeters);
}

void writeMasks(const Writer& out) {
  Draw draw(4);
  for (int k = 0; k < 12; ++k) {
    // One after the other: compilers differ in the order in which they evaluate arguments.
    const int width = 200 + draw.below(100);
    const int height = 150 + draw.below(100);
    const cv::Size size(width, height);
    cv::Mat first = draw.picture(size);
    cv::Mat second = draw.picture(size);
    convertRawFisheyeImage(draw.below(200), first, second);
    out.write("mask-circle-" + std::to_string(k) + "-first", first);
    out.write("mask-circle-" + std::to_string(k) + "-second", second);
    first = draw.picture(size);
    second = draw.picture(size);
    const auto shift = [&] { return static_cast<float>(draw.below(4000) - 2000) / 37.0F; };
    const float radiusY = shift();
    const float radiusX = shift();
    const float centerX = shift();
    const float centerY = shift();
    convertRawFisheyeImage(first, second, radiusY, radiusX, centerX, centerY);
    out.write("mask-ellipse-" + std::to_string(k) + "-first", first);
    out.write("mask-ellipse-" + std::to_string(k) + "-second", second);
  }
}

void writeDepths(const Writer& out) {
  Draw draw(5);
  const cv::Size size(300, 260);
  for (const int mode : {1, 2}) {
    for (int k = 0; k < 8; ++k) {
      const std::string name = "depth-mode" + std::to_string(mode) + "-" + std::to_string(k);
      core::DepthModel depth;
      depth.mode = mode;
      depth.b = 0.03F + static_cast<float>(draw.below(1000)) / 9999.0F;
      depth.f = 100 + draw.below(10000) / 33.0;
      depth.W = size.width;
      depth.lonLatFov = 150 + draw.below(300) / 10.0;
      core::CloudImages images;
      images.disparity = drawnDisparity(size, draw, k % 2 == 1);
      images.view = draw.picture(size);
      core::metricDepth(images.disparity, depth, images.depth);
      out.write(name + "-metres", images.depth);
      cv::Mat depths;
      cv::Mat picture;
      const core::DepthRange range = core::measureDepths(images.disparity, depth, depths);
      core::paintDepths(depths, range, picture);
      out.write(name + "-depths", depths);
      out.write(name + "-colours", picture);
      core::CloudModel cloud;
      cloud.mode = mode;
      cloud.fx = cloud.fy = depth.f;
      cloud.cx = size.width / 2.0 - 0.5;
      cloud.cy = size.height / 2.0 - 0.5;
      cloud.baselineMillimeters = depth.b * 1000.0;
      cloud.xi = draw.below(200) / 100.0;
      cloud.threshold = 60 + draw.below(120);
      for (const auto form : {core::CloudForm::plain, core::CloudForm::colored}) {
        std::vector<float> points;
        for (const core::CloudPoint& each : core::sampleCloud(images, cloud, form)) {
          points.insert(points.end(), each.point.val, each.point.val + 3);
          points.push_back(static_cast<float>(each.row));
          points.push_back(static_cast<float>(each.col));
        }
        out.write(name + (form == core::CloudForm::plain ? "-cloud" : "-coloured-cloud"), points);
      }
    }
  }
}

}  // namespace stereo::arm
