// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "bench/baseline/Difference.hpp"
#include "src/core/InstructionSet.hpp"

// What the comparisons of the library's kernels with their plain forms share.

namespace stereo::test {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float denormal = std::numeric_limits<float>::denorm_min();

/// Widths round the multiples of what goes at once, single rows and columns, and nothing at all.
inline const std::vector<cv::Size>& smallSizes() {
  static const std::vector<cv::Size> sizes = {{0, 0},  {0, 3},  {3, 0},  {1, 1},  {1, 23}, {23, 1}, {7, 5},
                                              {15, 4}, {16, 4}, {17, 4}, {31, 3}, {32, 2}, {33, 3}, {37, 29}};
  return sizes;
}

/// Both rectified sizes in use.
inline const std::vector<cv::Size>& realSizes() {
  static const std::vector<cv::Size> sizes = {{464, 400}, {928, 800}};
  return sizes;
}

/// Runs `check` once with each instruction set that this processor has; afterwards the one before is in use again.
template <typename Check>
void withEachInstructionSet(const Check& check) {
  struct Restore {
    core::InstructionSet before = core::instructionSet();
    ~Restore() { core::useInstructionSet(before); }
  } restore;
  for (const core::InstructionSet set : core::availableInstructionSets()) {
    SCOPED_TRACE(core::name(set));
    core::useInstructionSet(set);
    check();
  }
}

template <typename T>
T pick(cv::RNG& random, const std::vector<T>& values) {
  return values[static_cast<std::size_t>(random.uniform(0, static_cast<int>(values.size())))];
}

inline double between(cv::RNG& random, double lowest, double highest) { return random.uniform(lowest, highest); }

inline bool chance(cv::RNG& random, double probability) { return between(random, 0, 1) < probability; }

/// Fills an image, which may be empty, with numbers of its depth in [lowest, highest).
inline void fill(cv::RNG& random, cv::Mat& image, double lowest, double highest) {
  if (!image.empty()) {
    random.fill(image, cv::RNG::UNIFORM, lowest, highest);
  }
}

/// Success if the results are the same to the bit (see `baseline::difference`).
template <typename T>
testing::AssertionResult same(const T& expected, const T& actual) {
  const std::string difference = baseline::difference(expected, actual);
  return difference.empty() ? testing::AssertionSuccess() : testing::AssertionFailure() << difference;
}

/// Deep copy that keeps size and type of an empty image too.
inline cv::Mat copyOf(const cv::Mat& image) {
  return image.empty() ? cv::Mat(image.size(), image.type()) : image.clone();
}

/// A picture inside a larger one, so that its rows do not follow each other in memory and that writing beside it shows.
class Framed {
public:
  explicit Framed(const cv::Mat& content) : m_area(3, 2, content.cols, content.rows) {
    m_whole.create(content.rows + 5, content.cols + 8, content.type());
    cv::RNG random(11);
    cv::Mat bytes(m_whole.rows, m_whole.cols * static_cast<int>(m_whole.elemSize()), CV_8UC1, m_whole.data);
    fill(random, bytes, 1, 100);
    copyInside(content, m_whole);
    m_before = m_whole.clone();
  }

  /// An empty picture is a part of nothing and gets a header of its own.
  cv::Mat inside() const { return m_area.empty() ? cv::Mat(m_area.size(), m_whole.type()) : m_whole(m_area); }

  /// Whether nothing but the picture inside changed.
  testing::AssertionResult untouchedOutside() const {
    cv::Mat expected = m_before.clone();
    copyInside(inside(), expected);
    return same(expected, m_whole);
  }

private:
  void copyInside(const cv::Mat& content, cv::Mat& whole) const {
    if (!m_area.empty()) {
      content.copyTo(whole(m_area));
    }
  }

  cv::Rect m_area;
  cv::Mat m_whole;
  cv::Mat m_before;
};

}  // namespace stereo::test
