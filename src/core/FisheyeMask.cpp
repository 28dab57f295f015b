// SPDX-License-Identifier: Apache-2.0
#include "core/FisheyeMask.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace stereo::core {

namespace {

// False where there is no pixel to mask; throws where masking would leave an image or misread its pixels.
bool maskable(const cv::Mat& first, const cv::Mat& second) {
  if (first.empty()) {
    return false;
  }
  CV_Assert(first.dims == 2 && first.type() == CV_8UC3);
  CV_Assert(second.dims == 2 && second.type() == CV_8UC3);
  CV_Assert(second.rows >= first.rows && second.cols >= first.cols);
  return true;
}

// Blackens, row by row from the top, what lies outside the span of columns that is kept. Where nothing lies between the
// end of a row and the start of the next, what is black there is one piece of memory.
class Blackener {
public:
  // The first `cols` columns of the image, which has at least as many.
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
  // To be called after the last row.
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
  unsigned char* m_black = nullptr;      // start of what is still to be blackened
  const unsigned char* m_end = nullptr;  // and its end, unless the next row goes on with it
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

// The ellipse e = dx^2 / rx^2 + dy^2 / ry^2, dx = j - cxe, dy = i - cye, in single precision. A pixel with e = 1 stays,
// and so does one where a semi-axis of zero leaves e undefined.
struct Ellipse {
  float cxe, cye, rx, rx2, ry2;

  Ellipse(cv::Size size, const EllipseShift& shift) {
    const auto hw = static_cast<float>(size.width >> 1);
    const auto hh = static_cast<float>(size.height >> 1);
    cxe = hw + shift.centerX;
    cye = hh + shift.centerY;
    const float ry = hh + shift.radiusY;
    rx = hw + shift.radiusX;
    ry2 = ry * ry;
    rx2 = rx * rx;
  }

  // Whether the rows' kept pixels are spans that `spanOf` finds: e then grows with |dx|, rounding included.
  bool hasSpans() const { return std::isfinite(cxe) && std::isfinite(rx2) && rx2 > 0; }

  // dy^2 / ry^2 of a row
  float rowTerm(int i) const {
    const float dy = static_cast<float>(i) - cye;
    return dy * dy / ry2;
  }
  bool keeps(int j, float ey) const {
    const float dx = static_cast<float>(j) - cxe;
    return !(dx * dx / rx2 + ey > 1.0F);
  }

  // Columns [left, right) of [0, cols) that the row keeps. The square root only says where to look.
  void spanOf(float ey, int cols, int& left, int& right) const {
    left = right = cols;
    if (ey > 1.0F) {
      return;
    }
    if (std::isnan(ey)) {
      left = 0;
      return;
    }
    // If any column is kept, then one of the two nearest to the centre.
    int inside = static_cast<int>(std::clamp(std::floor(cxe), 0.0F, static_cast<float>(cols - 1)));
    if (!keeps(inside, ey) && (inside + 1 >= cols || !keeps(++inside, ey))) {
      return;
    }
    const float half = std::abs(rx) * std::sqrt(1.0F - ey);
    left = columnNear(cxe - half, inside, 0, inside);
    while (left < inside && !keeps(left, ey)) {
      ++left;
    }
    while (left > 0 && keeps(left - 1, ey)) {
      --left;
    }
    int last = columnNear(cxe + half, inside, inside, cols - 1);
    while (last > inside && !keeps(last, ey)) {
      --last;
    }
    while (last + 1 < cols && keeps(last + 1, ey)) {
      ++last;
    }
    right = last + 1;
  }

private:
  static int columnNear(float column, int ifUndefined, int lowest, int highest) {
    return std::isnan(column)
               ? ifUndefined
               : static_cast<int>(std::clamp(column, static_cast<float>(lowest), static_cast<float>(highest)));
  }
};

}  // namespace

// Row i keeps the closed span [cx - half, cx + half], half = floor(sqrt(R^2 - (cy - i)^2)); a row beyond the radius
// keeps nothing. The squares are integers turned into floats, in 64 bits so that no radius overflows.
void maskCircle(int radius, cv::Mat& first, cv::Mat& second) {
  if (!maskable(first, second)) {
    return;
  }
  const std::int64_t cols = first.cols;
  const std::int64_t cx = first.cols >> 1;
  const std::int64_t cy = first.rows >> 1;
  const auto R2 = static_cast<float>(static_cast<std::int64_t>(radius) * radius);
  PairBlackener outside(first, second);
  for (int i = 0; i < first.rows; ++i) {
    const std::int64_t d = cy - i;
    const float rest = R2 - static_cast<float>(d * d);
    std::int64_t left = cols;
    std::int64_t right = cols;
    if (rest >= 0) {
      const auto half = static_cast<std::int64_t>(std::sqrt(rest));
      left = std::clamp<std::int64_t>(cx - half, 0, cols);
      right = std::clamp<std::int64_t>(cx + half + 1, 0, cols);
    }
    outside.keep(i, static_cast<int>(left), static_cast<int>(right));
  }
  outside.finish();
}

void maskEllipse(cv::Mat& first, cv::Mat& second, const EllipseShift& shift) {
  if (!maskable(first, second)) {
    return;
  }
  const Ellipse ellipse(first.size(), shift);
  if (ellipse.hasSpans()) {
    PairBlackener outside(first, second);
    for (int i = 0; i < first.rows; ++i) {
      int left = 0;
      int right = 0;
      ellipse.spanOf(ellipse.rowTerm(i), first.cols, left, right);
      outside.keep(i, left, right);
    }
    outside.finish();
    return;
  }
  for (int i = 0; i < first.rows; ++i) {
    const float ey = ellipse.rowTerm(i);
    auto* inFirst = first.ptr<cv::Vec3b>(i);
    auto* inSecond = second.ptr<cv::Vec3b>(i);
    for (int j = 0; j < first.cols; ++j) {
      if (!ellipse.keeps(j, ey)) {
        inFirst[j] = cv::Vec3b();
        inSecond[j] = cv::Vec3b();
      }
    }
  }
}

}  // namespace stereo::core
