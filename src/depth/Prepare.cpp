// SPDX-License-Identifier: Apache-2.0
// From an eye's image to the views that are matched.
#include "src/depth/Prepare.hpp"

#include <algorithm>
#include <cstring>

#include "src/core/KernelVariants.hpp"

namespace stereo::depth {

namespace {

using core::InstructionSet;
using core::instructionSet;

// Gray of OpenCV's weights for blue, green, red in 1/256, times 1.
STEREO_CAMERA_ALWAYS_INLINE void grayOfBody(const std::uint8_t* __restrict bgr, int count,
                                            std::uint8_t* __restrict gray) {
  for (int k = 0; k < count; ++k) {
    gray[k] = static_cast<std::uint8_t>((29 * bgr[3 * k] + 150 * bgr[3 * k + 1] + 77 * bgr[3 * k + 2] + 128) >> 8);
  }
}

STEREO_CAMERA_KERNEL(grayOf, (const std::uint8_t* bgr, int count, std::uint8_t* gray), (bgr, count, gray))

// 3, 10, 3 sixteenths down the rows, then along them.
STEREO_CAMERA_ALWAYS_INLINE void smoothBody(const std::uint8_t* __restrict above, const std::uint8_t* __restrict row,
                                            const std::uint8_t* __restrict below, int count,
                                            std::uint16_t* __restrict column, std::uint8_t* __restrict out) {
  for (int k = 0; k < count; ++k) {
    column[k + 1] = static_cast<std::uint16_t>(3 * (above[k] + below[k]) + 10 * row[k]);
  }
  column[0] = column[1];
  column[count + 1] = column[count];
  for (int k = 0; k < count; ++k) {
    out[k] = static_cast<std::uint8_t>((3 * (column[k] + column[k + 2]) + 10 * column[k + 1] + 128) >> 8);
  }
}

STEREO_CAMERA_KERNEL(smooth,
                     (const std::uint8_t* above, const std::uint8_t* row, const std::uint8_t* below, int count,
                      std::uint16_t* column, std::uint8_t* out),
                     (above, row, below, count, column, out))

constexpr int widest = 8192;  // of an eye's image

STEREO_CAMERA_ALWAYS_INLINE void halveBody(const std::uint16_t* __restrict samples, int width,
                                           std::uint16_t* __restrict halves) {
  for (int k = 0; k < width; ++k) {
    halves[k] = static_cast<std::uint16_t>(samples[2 * k] + samples[2 * k + 1]);
  }
}

STEREO_CAMERA_KERNEL(halve, (const std::uint16_t* samples, int width, std::uint16_t* halves), (samples, width, halves))

// Bits of up to eight neighbors. `rows` point to the pixel, `shift` are columns.
struct Neighbors {
  const std::uint16_t* from[8];
};

STEREO_CAMERA_ALWAYS_INLINE void censusRowBody(const std::uint16_t* __restrict center, const Neighbors& given,
                                               int count, std::uint8_t* __restrict bits) {
  const Neighbors n = given;
  for (int k = 0; k < count; ++k) {
    const std::uint16_t c = center[k];
    bits[k] = static_cast<std::uint8_t>((n.from[0][k] < c ? 1 : 0) | (n.from[1][k] < c ? 2 : 0) |
                                        (n.from[2][k] < c ? 4 : 0) | (n.from[3][k] < c ? 8 : 0) |
                                        (n.from[4][k] < c ? 16 : 0) | (n.from[5][k] < c ? 32 : 0) |
                                        (n.from[6][k] < c ? 64 : 0) | (n.from[7][k] < c ? 128 : 0));
  }
}

STEREO_CAMERA_KERNEL(censusRow, (const std::uint16_t* center, const Neighbors& given, int count, std::uint8_t* bits),
                     (center, given, count, bits))

}  // namespace

void smoothGray(const cv::Mat& image, int from, int to, std::uint8_t* gray, std::ptrdiff_t stride) {
  const int width = image.cols;
  std::uint8_t lines[3][widest];
  std::uint16_t column[widest + 2];
  const std::uint8_t* rows[3];
  const auto fetch = [&](int row) {
    const std::uint8_t* const source = image.ptr(std::clamp(row, 0, image.rows - 1));
    if (image.channels() == 1) {
      return source;
    }
    std::uint8_t* const line = lines[(row + 3) % 3];
    grayOf(source, width, line);
    return static_cast<const std::uint8_t*>(line);
  };
  rows[0] = fetch(from - 1);
  rows[1] = fetch(from);
  for (int row = from; row < to; ++row) {
    rows[2] = fetch(row + 1);
    smooth(rows[0], rows[1], rows[2], width, column, gray + row * stride);
    rows[0] = rows[1];
    rows[1] = rows[2];
  }
}

void sampleGray(const SampleMap& map, const std::uint8_t* gray, std::ptrdiff_t stride, int from, int to,
                std::uint16_t* samples) {
  const auto first = static_cast<std::size_t>(from) * static_cast<std::size_t>(map.width);
  const auto last = static_cast<std::size_t>(to) * static_cast<std::size_t>(map.width);
  for (std::size_t k = first; k < last; ++k) {
    const std::uint8_t* const at = gray + map.offset[k];
    const int right = map.right[k];
    const int lower = map.lower[k];
    const int above = at[0] * (128 - right) + at[1] * right;
    const int below = at[stride] * (128 - right) + at[stride + 1] * right;
    samples[k] = static_cast<std::uint16_t>((above * (128 - lower) + below * lower + 512) >> 10);
  }
}

void sampleColor(const SampleMap& map, const cv::Mat& image, int from, int to, cv::Mat& view) {
  const int channels = image.channels();
  const auto stride = static_cast<std::ptrdiff_t>(image.step);
  const std::ptrdiff_t gap = stride - static_cast<std::ptrdiff_t>(image.cols) * channels;  // after each row
  for (int row = from; row < to; ++row) {
    std::uint8_t* const out = view.ptr(row);
    const std::size_t first = static_cast<std::size_t>(row) * static_cast<std::size_t>(map.width);
    for (int x = 0; x < map.width; ++x) {
      const std::size_t k = first + static_cast<std::size_t>(x);
      std::uint8_t* const pixel = out + 3 * static_cast<std::ptrdiff_t>(x);
      if (map.seen[k] == 0) {
        pixel[0] = pixel[1] = pixel[2] = 0;
        continue;
      }
      const std::uint8_t* const at = image.data + static_cast<std::ptrdiff_t>(map.offset[k]) * channels +
                                     (gap == 0 ? 0 : gap * (map.offset[k] / image.cols));
      const int right = map.right[k];
      const int lower = map.lower[k];
      for (int c = 0; c < 3; ++c) {
        const std::uint8_t* const p = at + (channels == 3 ? c : 0);
        const int above = p[0] * (128 - right) + p[channels] * right;
        const int below = p[stride] * (128 - right) + p[stride + channels] * right;
        pixel[c] = static_cast<std::uint8_t>((above * (128 - lower) + below * lower + 8192) >> 14);
      }
    }
  }
}

void halveRow(const std::uint16_t* samples, int width, std::uint16_t* halves) { halve(samples, width, halves); }

void census(const std::uint16_t* image, int width, int height, int from, int to, bool mirrored,
            std::uint8_t* const (&planes)[3]) {
  constexpr int reach = 2;
  constexpr int chunk = 2048;
  std::uint16_t lines[5][chunk + 2 * reach];
  for (int row = from; row < to; ++row) {
    for (int first = 0; first < width; first += chunk) {
      const int count = std::min(chunk, width - first);
      for (int k = 0; k < 5; ++k) {
        const std::uint16_t* const source =
            image + static_cast<std::ptrdiff_t>(std::clamp(row + k - reach, 0, height - 1)) * width;
        const int before = std::max(first - reach, 0);
        const int after = std::min(first + count + reach, width);
        std::copy(source + before, source + after, lines[k] + (before - first + reach));
        std::fill(lines[k], lines[k] + (before - first + reach), source[0]);
        std::fill(lines[k] + (after - first + reach), lines[k] + count + 2 * reach, source[width - 1]);
      }
      int neighbor = 0;
      for (int plane = 0; plane < 3; ++plane) {
        Neighbors neighbors{};
        for (const std::uint16_t*& from8 : neighbors.from) {
          neighbor += neighbor == 12 ? 1 : 0;  // the pixel itself
          from8 = lines[neighbor / 5] + neighbor % 5;
          ++neighbor;
        }
        std::uint8_t* const out = planes[plane] + static_cast<std::ptrdiff_t>(row) * width;
        if (mirrored) {
          std::uint8_t bits[chunk];
          censusRow(lines[reach] + reach, neighbors, count, bits);
          std::reverse_copy(bits, bits + count, out + width - first - count);
        } else {
          censusRow(lines[reach] + reach, neighbors, count, out + first);
        }
      }
    }
  }
}

}  // namespace stereo::depth
