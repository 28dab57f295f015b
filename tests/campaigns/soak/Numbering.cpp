// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/Numbering.hpp"

#include <array>
#include <cmath>
#include <cstring>

namespace stereo::soak {

namespace {

constexpr int fromRim = 2;  // columns
constexpr std::size_t bytesOfNumber = std::size_t{3} * numberWidth;

using Bits = std::array<std::uint8_t, bytesOfNumber>;

Bits bitsOf(std::uint32_t number) {
  Bits bits{};
  for (std::size_t i = 0; i < bits.size(); ++i) {
    bits[i] = (number >> (i / 3) & 1U) != 0 ? 255 : 0;
  }
  return bits;
}

}  // namespace

int numberColumn(cv::Size eye, int row) {
  const int radius = eye.width / 2;
  const int dy = row - eye.height / 2;
  return eye.width / 2 - static_cast<int>(std::floor(std::sqrt(radius * radius - dy * dy))) + fromRim;
}

void drawNumber(cv::Mat eye, std::uint32_t number) {
  const Bits bits = bitsOf(number);
  for (int row = 0; row < eye.rows; ++row) {
    std::memcpy(eye.ptr(row, numberColumn(eye.size(), row)), bits.data(), bits.size());
  }
}

std::uint32_t numberIn(const cv::Mat& eye, int row) {
  const cv::Vec3b* const pixels = eye.ptr<cv::Vec3b>(row) + numberColumn(eye.size(), row);
  std::uint32_t number = 0;
  for (int bit = 0; bit < numberWidth; ++bit) {
    number |= pixels[bit][0] >= 128 ? 1U << bit : 0U;
  }
  return number;
}

std::string differenceOfEye(const cv::Mat& picture, std::uint32_t number, const cv::Mat& eye) {
  if (eye.size() != picture.size() || eye.type() != CV_8UC3) {
    return "of another size or type";
  }
  const Bits bits = bitsOf(number);
  const std::size_t rowBytes = static_cast<std::size_t>(eye.cols) * 3;
  for (int row = 0; row < eye.rows; ++row) {
    const std::size_t begin = static_cast<std::size_t>(numberColumn(eye.size(), row)) * 3;
    const std::size_t end = begin + bits.size();
    const std::uint8_t* const expected = picture.ptr(row);
    const std::uint8_t* const actual = eye.ptr(row);
    if (std::memcmp(actual + begin, bits.data(), bits.size()) != 0) {
      return "row " + std::to_string(row) + " is frame " + std::to_string(numberIn(eye, row)) + "'s, not frame " +
             std::to_string(number) + "'s";
    }
    if (std::memcmp(actual, expected, begin) != 0 || std::memcmp(actual + end, expected + end, rowBytes - end) != 0) {
      return "row " + std::to_string(row) + " is not what frame " + std::to_string(number) + " shows";
    }
  }
  return {};
}

}  // namespace stereo::soak
