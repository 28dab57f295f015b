// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::test {

/// What the feeder shows: both eyes see one random texture, the right one `shift` pixels further left, and over it, in
/// the middle of each eye, where no mask reaches, a row of 16 squares that say the frame's number: highest bit first,
/// white for 1 in the left eye and for 0 in the right one.
class Pattern {
public:
  explicit Pattern(cv::Size frame) : m_frame(frame), m_square(std::max(2, frame.width / 58)) {}

  static constexpr int bits = 16;
  int shift() const { return m_square; }

  /// Bytes of a frame as the device takes it: luma of each pixel, and between them the two color values of a pair.
  std::size_t bytes() const { return static_cast<std::size_t>(m_frame.area()) * 2; }

  /// The texture, without a number, as YUYV.
  std::vector<std::uint8_t> background() const {
    const int eye = m_frame.width / 2;
    const int grain = std::max(1, m_square / 2);
    std::mt19937 random(1);
    std::vector<std::uint8_t> frame(bytes(), 128);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(eye + shift()));
    for (int y = 0; y < m_frame.height; ++y) {
      if (y % grain == 0) {
        for (std::size_t x = 0; x < row.size(); ++x) {
          row[x] =
              x % static_cast<std::size_t>(grain) == 0 ? static_cast<std::uint8_t>(40 + random() % 160) : row[x - 1];
        }
      }
      std::uint8_t* const pixels =
          frame.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(m_frame.width) * 2;
      for (int x = 0; x < eye; ++x) {
        pixels[2 * x] = row[static_cast<std::size_t>(x)];
        pixels[2 * (eye + x)] = row[static_cast<std::size_t>(x + shift())];
      }
    }
    return frame;
  }

  /// Writes the number over both eyes of a YUYV frame.
  void timestamp(std::uint8_t* frame, unsigned number) const {
    for (int side = 0; side < 2; ++side) {
      for (int bit = 0; bit < bits; ++bit) {
        const bool isWhite = (((number >> (bits - 1 - bit)) & 1U) != 0) != (side == 1);
        const cv::Rect square = squareOf(bit) + cv::Point(side * m_frame.width / 2, 0);
        for (int y = square.y; y < square.br().y; ++y) {
          for (int x = square.x; x < square.br().x; ++x) {
            frame[2 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(m_frame.width) +
                       static_cast<std::size_t>(x))] = isWhite ? 235 : 16;
          }
        }
      }
    }
  }

  /// The number in one eye of a frame (CV_8UC3); -1 where a square is neither black nor white, or the size is another.
  int read(const cv::Mat& eye, bool isRight) const {
    if (eye.size() != cv::Size(m_frame.width / 2, m_frame.height) || eye.type() != CV_8UC3) {
      return -1;
    }
    int number = 0;
    for (int bit = 0; bit < bits; ++bit) {
      const int inset = m_square / 4;
      const cv::Rect square = squareOf(bit);
      const cv::Scalar mean = cv::mean(
          eye(cv::Rect(square.tl() + cv::Point(inset, inset), cv::Size(m_square - 2 * inset, m_square - 2 * inset))));
      const bool isWhite = mean[0] > 225 && mean[1] > 225 && mean[2] > 225;
      const bool isBlack = mean[0] < 30 && mean[1] < 30 && mean[2] < 30;
      if (isWhite == isBlack) {
        return -1;
      }
      number = 2 * number + (isWhite != isRight ? 1 : 0);
    }
    return number;
  }

private:
  cv::Rect squareOf(int bit) const {
    return {m_frame.width / 4 + (bit - bits / 2) * m_square, m_frame.height / 2 - m_square / 2, m_square, m_square};
  }

  cv::Size m_frame;
  int m_square;  // side in pixels: 32 for a frame 1856 wide, 16 for one 928 wide
};

}  // namespace stereo::test
