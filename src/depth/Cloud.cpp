// SPDX-License-Identifier: Apache-2.0
// Clouds of wide depth.
#include <array>
#include <cstring>
#include <fstream>
#include <limits>
#include <string>

#include "WideDepth.hpp"
#include "src/core/OutputReuse.hpp"

namespace stereo {

namespace {

void requireImage(const cv::Mat& image, int type, cv::Size size, const char* what) {
  if (image.type() != type || image.dims != 2 || image.size() != size) {
    CV_Error(cv::Error::StsBadArg, cv::format("%s: expected %d x %d of type %s; got %d x %d of type %s", what,
                                              size.width, size.height, cv::typeToString(type).c_str(), image.cols,
                                              image.rows, cv::typeToString(image.type()).c_str()));
  }
}

}  // namespace

void WideDepth::organizedCloud(const WideDepthImage& image, cv::Mat& cloud) const {
  const cv::Mat& directions = rays();
  requireImage(image.range, CV_32FC1, directions.size(), "range");
  core::writeInto(cloud, [&](cv::Mat& out) {
    out.create(directions.size(), CV_32FC3);
    constexpr float none = std::numeric_limits<float>::quiet_NaN();
    for (int row = 0; row < out.rows; ++row) {
      const float* const range = image.range.ptr<float>(row);
      const cv::Vec3f* const ray = directions.ptr<cv::Vec3f>(row);
      cv::Vec3f* const point = out.ptr<cv::Vec3f>(row);
      for (int x = 0; x < out.cols; ++x) {
        point[x] = range[x] > 0.0F ? ray[x] * range[x] : cv::Vec3f(none, none, none);
      }
    }
  });
}

void WideDepth::points(const WideDepthImage& image, std::vector<WidePoint>& points, int leastConfidence) const {
  const cv::Mat& directions = rays();
  requireImage(image.range, CV_32FC1, directions.size(), "range");
  requireImage(image.confidence, CV_8UC1, directions.size(), "confidence");
  requireImage(image.view, CV_8UC3, directions.size(), "view");
  points.clear();
  for (int row = 0; row < directions.rows; ++row) {
    const float* const range = image.range.ptr<float>(row);
    const std::uint8_t* const confidence = image.confidence.ptr(row);
    const cv::Vec3b* const color = image.view.ptr<cv::Vec3b>(row);
    const cv::Vec3f* const ray = directions.ptr<cv::Vec3f>(row);
    for (int x = 0; x < directions.cols; ++x) {
      if (range[x] > 0.0F && confidence[x] >= leastConfidence) {
        points.push_back({ray[x] * range[x], color[x], confidence[x]});
      }
    }
  }
}

void writePly(const std::string& file, const std::vector<WidePoint>& points) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << "ply\nformat binary_little_endian 1.0\nelement vertex " << points.size()
      << "\nproperty float x\nproperty float y\nproperty float z\nproperty uchar red\nproperty uchar green\n"
         "property uchar blue\nproperty uchar confidence\nend_header\n";
  for (const WidePoint& one : points) {
    std::array<char, 16> bytes{};
    for (int axis = 0; axis < 3; ++axis) {
      std::uint32_t bits = 0;
      std::memcpy(&bits, &one.point[axis], sizeof bits);
      for (int k = 0; k < 4; ++k) {
        bytes[4 * static_cast<std::size_t>(axis) + static_cast<std::size_t>(k)] =
            static_cast<char>(bits >> (8 * k) & 0xffU);
      }
    }
    for (int k = 0; k < 3; ++k) {
      bytes[12 + static_cast<std::size_t>(k)] = static_cast<char>(one.color[2 - k]);
    }
    bytes[15] = static_cast<char>(one.confidence);
    out.write(bytes.data(), bytes.size());
  }
  out.close();
  if (!out) {
    CV_Error(cv::Error::StsError, "cannot write '" + file + "'");
  }
}

}  // namespace stereo
