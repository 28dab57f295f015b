// SPDX-License-Identifier: Apache-2.0
// Blacks out what lies outside the image circle.
#include "src/core/FisheyeMask.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "src/core/MaskKernels.hpp"

namespace stereo::core {

namespace {

// False if there is no pixel to mask. Throws if masking would leave an image or misread its pixels.
bool maskable(const cv::Mat& first, const cv::Mat& second) {
  if (first.empty()) {
    return false;
  }
  CV_Assert(first.dims == 2 && first.type() == CV_8UC3);
  CV_Assert(second.dims == 2 && second.type() == CV_8UC3);
  CV_Assert(second.rows >= first.rows && second.cols >= first.cols);
  return true;
}

// Blacks out, row by row from the top, everything outside the span of columns that is kept. If the rows are adjacent in
// memory, the black end of a row and the black start of the next one are filled in one go.
class Blackener {
public:
  // Covers the first `cols` columns of the image, which has at least as many.
  Blackener(cv::Mat& image, int cols)
      : m_image(image), m_rowBytes(bytes(cols)), m_joined(image.cols == cols && image.isContinuous()) {}

  // Keeps the columns [left, right) of row i, 0 <= left <= right <= cols. Rows come in order.
  void keep(int i, int left, int right) {
    auto* const row = reinterpret_cast<unsigned char*>(m_image.ptr<cv::Vec3b>(i));
    fill(m_joined && m_black != nullptr ? m_black : row, row + bytes(left));
    m_black = row + bytes(right);
    m_end = row + m_rowBytes;
    if (!m_joined) {
      finish();
    }
  }
  // Call this after the last row.
  void finish() { fill(m_black, m_end); }

private:
  static std::size_t bytes(int cols) { return static_cast<std::size_t>(cols) * sizeof(cv::Vec3b); }
  static void fill(unsigned char* from, const unsigned char* to) {
    if (from != to) {
      std::memset(from, 0, static_cast<std::size_t>(to - from));
    }
  }

  cv::Mat& m_image;
  const std::size_t m_rowBytes;
  const bool m_joined;
  unsigned char* m_black = nullptr;      // start of the bytes still to be filled
  const unsigned char* m_end = nullptr;  // and their end, unless the next row continues them
};

// Both images of a pair, with one geometry.
class PairBlackener {
public:
  PairBlackener(cv::Mat& first, cv::Mat& second) : m_first(first, first.cols), m_second(second, first.cols) {}
  void keep(int i, int left, int right) {
    m_first.keep(i, left, right);
    m_second.keep(i, left, right);
  }
  void finish() {
    m_first.finish();
    m_second.finish();
  }

private:
  Blackener m_first;
  Blackener m_second;
};

// Rows whose spans are computed at once, on the stack.
constexpr int rowsAtOnce = 128;

// Computes the spans that the rows keep with `find(first, count, spans)`, some rows at a time, and blacks out the rest.
template <typename Find>
void blackenOutside(cv::Mat& first, cv::Mat& second, const Find& find) {
  PairBlackener outside(first, second);
  std::int32_t left[rowsAtOnce];
  std::int32_t right[rowsAtOnce];
  for (int i = 0; i < first.rows; i += rowsAtOnce) {
    const int count = std::min(rowsAtOnce, first.rows - i);
    find(i, count, KeptSpans{left, right});
    for (int k = 0; k < count; ++k) {
      outside.keep(i + k, left[k], right[k]);
    }
  }
  outside.finish();
}

// The circle for images so tall that a row's squared distance does not fit an int; one row.
void findTallCircle(float R2, cv::Size size, int row, const KeptSpans& spans) {
  const std::int64_t cols = size.width;
  const std::int64_t cx = size.width >> 1;
  const std::int64_t d = (size.height >> 1) - static_cast<std::int64_t>(row);
  const float rest = R2 - static_cast<float>(d * d);
  *spans.left = *spans.right = size.width;
  if (rest >= 0) {
    const auto half = static_cast<std::int64_t>(std::sqrt(rest));
    *spans.left = static_cast<std::int32_t>(std::clamp<std::int64_t>(cx - half, 0, cols));
    *spans.right = static_cast<std::int32_t>(std::clamp<std::int64_t>(cx + half + 1, 0, cols));
  }
}

// The span that a row of the ellipse keeps, found by testing columns from the center outward.
void searchSpan(const Ellipse& ellipse, int cols, int row, std::int32_t& left, std::int32_t& right) {
  const float ey = rowTerm(ellipse, row);
  left = right = cols;
  // If any column is kept, one of the two next to the center is.
  int inside = static_cast<int>(std::clamp(std::floor(ellipse.cxe), 0.0F, static_cast<float>(cols - 1)));
  if (!keeps(ellipse, inside, ey)) {
    if (inside + 1 >= cols || !keeps(ellipse, inside + 1, ey)) {
      return;
    }
    ++inside;
  }
  // Find both ends by bisection: e grows with the distance from the center.
  int black = -1;
  left = inside;
  while (left - black > 1) {
    const int middle = black + (left - black) / 2;
    (keeps(ellipse, middle, ey) ? left : black) = middle;
  }
  int last = inside;
  right = cols;
  while (right - last > 1) {
    const int middle = last + (right - last) / 2;
    (keeps(ellipse, middle, ey) ? last : right) = middle;
  }
}

}  // namespace

// Row i keeps the closed span [cx - half, cx + half], half = floor(sqrt(R^2 - (cy - i)^2)); a row beyond the radius
// keeps nothing. The squares are integers turned into floats, R^2 in 64 bits so that no radius overflows.
void maskCircle(int radius, cv::Mat& first, cv::Mat& second) {
  if (!maskable(first, second)) {
    return;
  }
  const cv::Size size = first.size();
  const auto R2 = static_cast<float>(static_cast<std::int64_t>(radius) * radius);
  constexpr int tall = 65536;
  blackenOutside(first, second, [&](int row, int count, const KeptSpans& spans) {
    if (size.height <= tall) {
      circleSpans(size.width >> 1, size.height >> 1, R2, size.width, row, count, spans);
      return;
    }
    for (int k = 0; k < count; ++k) {
      findTallCircle(R2, size, row + k, {spans.left + k, spans.right + k});
    }
  });
}

void maskEllipse(cv::Mat& first, cv::Mat& second, const EllipseShift& shift) {
  if (!maskable(first, second)) {
    return;
  }
  const auto hw = static_cast<float>(first.cols >> 1);
  const auto hh = static_cast<float>(first.rows >> 1);
  const float ry = hh + shift.radiusY;
  const float rx = hw + shift.radiusX;
  const Ellipse ellipse{hw + shift.centerX, hh + shift.centerY, std::abs(rx), rx * rx, ry * ry};
  if (std::isfinite(ellipse.cxe) && std::isfinite(ellipse.rx2) && ellipse.rx2 > 0) {
    blackenOutside(first, second, [&](int row, int count, const KeptSpans& spans) {
      std::uint32_t doubt[rowsAtOnce];
      ellipseSpans(ellipse, first.cols, row, count, spans, doubt);
      for (int k = 0; k < count; ++k) {
        if (doubt[k] != 0) {
          searchSpan(ellipse, first.cols, row + k, spans.left[k], spans.right[k]);
        }
      }
    });
    return;
  }
  // A row may keep something other than a span: test every pixel.
  for (int i = 0; i < first.rows; ++i) {
    const float ey = rowTerm(ellipse, i);
    auto* inFirst = first.ptr<cv::Vec3b>(i);
    auto* inSecond = second.ptr<cv::Vec3b>(i);
    for (int j = 0; j < first.cols; ++j) {
      if (!keeps(ellipse, j, ey)) {
        inFirst[j] = cv::Vec3b();
        inSecond[j] = cv::Vec3b();
      }
    }
  }
}

}  // namespace stereo::core
