// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/fuzz/Input.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

#include "src/core/InstructionSet.hpp"

namespace stereo::fuzz {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

constexpr std::array exceptional{0.0,
                                 -0.0,
                                 1.0,
                                 -1.0,
                                 infinity,
                                 -infinity,
                                 std::numeric_limits<double>::quiet_NaN(),
                                 -std::numeric_limits<double>::quiet_NaN(),
                                 std::numeric_limits<double>::denorm_min(),
                                 -std::numeric_limits<double>::min(),
                                 std::numeric_limits<double>::max(),
                                 -std::numeric_limits<double>::max(),
                                 1e300,
                                 -1e300,
                                 1e-300,
                                 1e38,
                                 -3.5e38,
                                 1e-40,
                                 2147483647.0,
                                 2147483648.0,
                                 -2147483649.0,
                                 4294967296.0,
                                 1e9,
                                 1e11,
                                 3.141592653589793,
                                 1.5707963267948966,
                                 180.0,
                                 222.0,
                                 360.0,
                                 1e-9,
                                 0.05,
                                 0.5};

template <typename Number>
void store(cv::Mat& matrix, std::size_t at, double value) {
  // Integers take the low bits of what fits; the values are arbitrary anyway.
  const double inRange = std::isnan(value) ? 0.0 : std::fmod(std::clamp(value, -1e9, 1e9), 32768.0);
  if constexpr (std::is_floating_point_v<Number>) {
    reinterpret_cast<Number*>(matrix.data)[at] = static_cast<Number>(value);
  } else {
    reinterpret_cast<Number*>(matrix.data)[at] = static_cast<Number>(static_cast<int>(inRange));
  }
}

void storeNumber(cv::Mat& matrix, std::size_t at, double value) {
  switch (matrix.depth()) {
    case CV_64F:
      return store<double>(matrix, at, value);
    case CV_32F:
      return store<float>(matrix, at, value);
    case CV_32S:
      return store<int>(matrix, at, value);
    case CV_16U:
    case CV_16S:
    case CV_16F:
      return store<short>(matrix, at, value);
    default:
      return store<unsigned char>(matrix, at, value);
  }
}

}  // namespace

double Input::number(double usual) {
  const int kind = byte();
  if (kind < 192) {
    return usual * (1 + (kind - 96) / 256.0) + (kind % 16 == 15 ? kind / 64.0 : 0.0);
  }
  if (kind < 192 + static_cast<int>(exceptional.size())) {
    return exceptional[static_cast<std::size_t>(kind - 192)];
  }
  std::uint64_t bits = 0;
  for (int k = 0; k < 8; ++k) {
    bits = bits << 8 | byte();
  }
  return std::bit_cast<double>(bits);
}

float Input::pixel(double usual) {
  const int kind = byte();
  if (kind < 192) {
    return static_cast<float>(usual * (kind - 32) / 64.0);
  }
  if (kind < 192 + static_cast<int>(exceptional.size())) {
    return static_cast<float>(exceptional[static_cast<std::size_t>(kind - 192)]);
  }
  std::uint32_t bits = 0;
  for (int k = 0; k < 4; ++k) {
    bits = bits << 8 | byte();
  }
  return std::bit_cast<float>(bits);
}

int Input::integer() {
  const int kind = byte();
  if (kind < 192) {
    return kind - 8;
  }
  constexpr int most = std::numeric_limits<int>::max();
  constexpr std::array extreme{most, most - 1, -most - 1, -most, 1 << 30, 1856, 928, 464, 65536, -1};
  if (kind < 192 + static_cast<int>(extreme.size())) {
    return extreme[static_cast<std::size_t>(kind - 192)];
  }
  std::uint32_t bits = 0;
  for (int k = 0; k < 4; ++k) {
    bits = bits << 8 | byte();
  }
  return static_cast<int>(bits);
}

int Input::anyType() {
  const int depth = between(0, 7);
  return CV_MAKETYPE(depth, between(1, 4));
}

cv::Mat Input::matrix(int rows, int cols, const double* usual) {
  const int kind = byte();
  int type = CV_64FC1;
  if (kind >= 224) {
    switch (kind % 8) {
      case 0:
        return {};
      case 1: {
        const int sizes[] = {between(0, 2), between(1, 3), between(1, 3)};
        return cv::Mat(3, sizes, CV_64F, cv::Scalar(number(1)));
      }
      case 2:
        type = anyType();
        break;
      case 3:
        std::swap(rows, cols);
        break;
      default:
        rows = between(0, 5);
        cols = between(0, 5);
    }
  }
  cv::Mat matrix(rows, cols, type);
  const std::size_t count = matrix.total() * static_cast<std::size_t>(matrix.channels());
  // One byte for a matrix of usual numbers, so that an input may go wrong in one place alone.
  const bool isUsual = kind % 4 == 0;
  for (std::size_t k = 0; k < count; ++k) {
    const double near =
        k < static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols) && kind < 224 ? usual[k] : 1.0;
    storeNumber(matrix, k, isUsual ? near : number(near));
  }
  return matrix;
}

cv::Mat Input::image(int usualType, cv::Size largest, double usual) {
  const int kind = byte();
  if (kind == 255) {
    const int sizes[] = {between(0, 3), between(1, 3), between(1, 3)};
    cv::Mat cube(3, sizes, usualType);
    fill(cube, usual);
    return cube;
  }
  const int type = kind >= 240 ? anyType() : usualType;
  const int rows = between(0, largest.height);
  const int cols = between(0, largest.width);
  // Some are parts of larger images, whose rows do not follow each other in memory.
  if (kind % 4 == 3) {
    cv::Mat whole(rows + 1, cols + 3, type);
    fill(whole, usual);
    return whole(cv::Rect(2, 0, cols, rows));
  }
  cv::Mat image(rows, cols, type);
  fill(image, usual);
  return image;
}

// A few bytes make a whole image: they are taken over and over.
void Input::fill(cv::Mat& image, double usual) {
  const std::size_t wanted = 1U + byte() % 64U;
  const std::size_t length = std::min(wanted, static_cast<std::size_t>(m_end - m_next));
  Input pattern(m_next, length);
  const std::size_t count = image.total() * static_cast<std::size_t>(image.channels());
  for (std::size_t k = 0; k < count; ++k) {
    if (pattern.m_next == pattern.m_end) {
      pattern.m_next = m_next;
    }
    storeNumber(image, k, image.depth() == CV_8U ? pattern.byte() : static_cast<double>(pattern.pixel(usual)));
  }
  m_next += length;
}

void chooseInstructionSet(int number) {
  static const std::vector<core::InstructionSet> available = core::availableInstructionSets();
  core::useInstructionSet(available[static_cast<std::size_t>(number) % available.size()]);
}

}  // namespace stereo::fuzz
