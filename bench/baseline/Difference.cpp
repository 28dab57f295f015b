// SPDX-License-Identifier: Apache-2.0
// Compares results bit for bit.
#include "bench/baseline/Difference.hpp"

#include <bit>
#include <cmath>
#include <cstdint>
#include <sstream>

namespace stereo::baseline {

namespace {

bool same(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) || (std::isnan(a) && std::isnan(b));
}

bool same(const cv::Vec3f& a, const cv::Vec3f& b) { return same(a[0], b[0]) && same(a[1], b[1]) && same(a[2], b[2]); }

bool same(const PCL& a, const PCL& b) { return same(a.point, b.point) && a.color == b.color; }

bool same(unsigned char a, unsigned char b) { return a == b; }

std::string text(float value) {
  std::ostringstream out;
  out.precision(9);
  out << value;
  return out.str();
}

std::string text(unsigned char value) { return std::to_string(int{value}); }

template <typename T>
std::string firstDifference(const cv::Mat& expected, const cv::Mat& actual) {
  const int channels = expected.channels();
  for (int r = 0; r < expected.rows; ++r) {
    const auto* a = expected.ptr<T>(r);
    const auto* b = actual.ptr<T>(r);
    for (int k = 0; k < expected.cols * channels; ++k) {
      if (!same(a[k], b[k])) {
        std::ostringstream out;
        out << "row " << r << ", column " << k / channels << ", channel " << k % channels << ": expected " << text(a[k])
            << ", got " << text(b[k]);
        return out.str();
      }
    }
  }
  return {};
}

template <typename T>
std::string firstDifference(const std::vector<T>& expected, const std::vector<T>& actual) {
  if (expected.size() != actual.size()) {
    return "expected " + std::to_string(expected.size()) + " points, got " + std::to_string(actual.size());
  }
  for (std::size_t k = 0; k < expected.size(); ++k) {
    if (!same(expected[k], actual[k])) {
      return "point " + std::to_string(k) + " of " + std::to_string(expected.size()) + " differs";
    }
  }
  return {};
}

}  // namespace

std::string difference(const cv::Mat& expected, const cv::Mat& actual) {
  std::ostringstream out;
  if (expected.size() != actual.size()) {
    out << "expected " << expected.size() << ", got " << actual.size();
    return out.str();
  }
  if (expected.type() != actual.type()) {
    out << "expected type " << cv::typeToString(expected.type()) << ", got " << cv::typeToString(actual.type());
    return out.str();
  }
  CV_Assert(expected.depth() == CV_32F || expected.depth() == CV_8U);
  return expected.depth() == CV_32F ? firstDifference<float>(expected, actual)
                                    : firstDifference<unsigned char>(expected, actual);
}

std::string difference(const std::vector<cv::Vec3f>& expected, const std::vector<cv::Vec3f>& actual) {
  return firstDifference(expected, actual);
}

std::string difference(const std::vector<PCL>& expected, const std::vector<PCL>& actual) {
  return firstDifference(expected, actual);
}

}  // namespace stereo::baseline
