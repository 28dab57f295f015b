// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/pictures/CloudFiles.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "apps/stereo-camera/output/Output.hpp"

namespace stereo::app {

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "numbers are written as they are in memory");

void append(std::string& bytes, const cv::Vec3f& point) {
  char raw[sizeof(float) * 3];
  std::memcpy(raw, point.val, sizeof raw);
  bytes.append(raw, sizeof raw);
}

void write(const std::filesystem::path& path, std::size_t points, const char* extraProperties,
           const std::string& body) {
  writeFile(path, "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(points) +
                      "\nproperty float x\nproperty float y\nproperty float z\n" + extraProperties + "end_header\n" +
                      body);
}

float median(std::vector<float> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

void writePly(const std::filesystem::path& path, const std::vector<cv::Vec3f>& cloud) {
  std::string body;
  for (const cv::Vec3f& point : cloud) {
    append(body, point);
  }
  write(path, cloud.size(), "", body);
}

void writePly(const std::filesystem::path& path, const std::vector<PCL>& cloud) {
  std::string body;
  for (const PCL& point : cloud) {
    append(body, point.point);
    for (const int channel : {2, 1, 0}) {
      body.push_back(static_cast<char>(point.color[channel]));
    }
  }
  write(path, cloud.size(), "property uchar red\nproperty uchar green\nproperty uchar blue\n", body);
}

cv::Mat renderCloud(const std::vector<PCL>& cloud, double degrees, cv::Size size) {
  cv::Mat picture = cv::Mat::zeros(size, CV_8UC3);
  std::vector<float> depths;
  for (const PCL& point : cloud) {
    if (std::isfinite(point.point[2])) {
      depths.push_back(point.point[2]);
    }
  }
  if (depths.empty()) {
    return picture;
  }
  // The viewpoint starts at the camera and swings around the middle of the cloud on its axis.
  const double middle = median(depths);
  const double angle = degrees * CV_PI / 180;
  const double f = 0.9 * std::min(size.width, size.height);
  cv::Mat nearest(size, CV_32FC1, cv::Scalar(std::numeric_limits<double>::infinity()));
  constexpr int dot = 1;  // pixels around the center
  for (const PCL& point : cloud) {
    const double x = point.point[0];
    const double y = point.point[1];
    const double z = point.point[2] - middle;
    const double turnedX = std::cos(angle) * x - std::sin(angle) * z;
    const double turnedZ = std::sin(angle) * x + std::cos(angle) * z + middle;
    const double u = f * turnedX / turnedZ + size.width / 2.0;
    const double v = f * y / turnedZ + size.height / 2.0;
    if (!(turnedZ > 0.01 && u >= dot && v >= dot && u < size.width - dot && v < size.height - dot)) {
      continue;
    }
    for (int row = static_cast<int>(v) - dot; row <= static_cast<int>(v) + dot; ++row) {
      for (int col = static_cast<int>(u) - dot; col <= static_cast<int>(u) + dot; ++col) {
        if (turnedZ < nearest.at<float>(row, col)) {
          nearest.at<float>(row, col) = static_cast<float>(turnedZ);
          picture.at<cv::Vec3b>(row, col) = point.color;
        }
      }
    }
  }
  return picture;
}

}  // namespace stereo::app
