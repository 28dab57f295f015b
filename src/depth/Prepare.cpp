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
  for (std::ptrdiff_t k = 0; k < count; ++k) {
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
  for (std::ptrdiff_t k = 0; k < width; ++k) {
    halves[k] = static_cast<std::uint16_t>(samples[2 * k] + samples[2 * k + 1]);
  }
}

STEREO_CAMERA_KERNEL(halve, (const std::uint16_t* samples, int width, std::uint16_t* halves), (samples, width, halves))

// Four pixels about each sample, two a word: the left one in the low bytes.
constexpr int chunk = 512;
struct Around {
  std::uint16_t above[chunk];
  std::uint16_t below[chunk];
};

STEREO_CAMERA_ALWAYS_INLINE void mixGrayBody(const Around& around, const std::uint8_t* __restrict right,
                                             const std::uint8_t* __restrict lower, int count,
                                             std::uint16_t* __restrict samples) {
  for (int k = 0; k < count; ++k) {
    const int above = (around.above[k] & 255) * (128 - right[k]) + (around.above[k] >> 8) * right[k];
    const int below = (around.below[k] & 255) * (128 - right[k]) + (around.below[k] >> 8) * right[k];
    samples[k] = static_cast<std::uint16_t>((above * (128 - lower[k]) + below * lower[k] + 512) >> 10);
  }
}

STEREO_CAMERA_KERNEL(mixGray,
                     (const Around& around, const std::uint8_t* right, const std::uint8_t* lower, int count,
                      std::uint16_t* samples),
                     (around, right, lower, count, samples))

// Four pixels about each sample: blue, green and red in the low bytes.
struct ColorAround {
  std::uint32_t aboveLeft[chunk];
  std::uint32_t aboveRight[chunk];
  std::uint32_t belowLeft[chunk];
  std::uint32_t belowRight[chunk];
};

STEREO_CAMERA_ALWAYS_INLINE void mixColorBody(const ColorAround& around, const std::uint8_t* __restrict right,
                                              const std::uint8_t* __restrict lower, const std::uint8_t* __restrict seen,
                                              int count, int channel, std::uint8_t* __restrict mixed) {
  for (int k = 0; k < count; ++k) {
    const auto of = [channel](std::uint32_t pixel) { return static_cast<int>(pixel >> (8 * channel) & 255U); };
    const int above = of(around.aboveLeft[k]) * (128 - right[k]) + of(around.aboveRight[k]) * right[k];
    const int below = of(around.belowLeft[k]) * (128 - right[k]) + of(around.belowRight[k]) * right[k];
    const int mean = (above * (128 - lower[k]) + below * lower[k] + 8192) >> 14;
    mixed[k] = static_cast<std::uint8_t>(mean & seen[k]);
  }
}

STEREO_CAMERA_KERNEL(mixColor,
                     (const ColorAround& around, const std::uint8_t* right, const std::uint8_t* lower,
                      const std::uint8_t* seen, int count, int channel, std::uint8_t* mixed),
                     (around, right, lower, seen, count, channel, mixed))

// The low byte is the first one on every processor.
std::uint16_t pairAt(const std::uint8_t* at) { return static_cast<std::uint16_t>(at[0] | at[1] << 8); }
std::uint32_t wordAt(const std::uint8_t* at) {
  return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
         static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

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
  const auto last = static_cast<std::ptrdiff_t>(to) * map.width;
  Around around;
  for (auto first = static_cast<std::ptrdiff_t>(from) * map.width; first < last; first += chunk) {
    const int count = static_cast<int>(std::min<std::ptrdiff_t>(chunk, last - first));
    const std::int32_t* const offset = map.offset.data() + first;
    for (int k = 0; k < count; ++k) {
      const std::uint8_t* const at = gray + offset[k];
      around.above[k] = pairAt(at);
      around.below[k] = pairAt(at + stride);
    }
    mixGray(around, map.right.data() + first, map.lower.data() + first, count, samples + first);
  }
}

void sampleColor(const SampleMap& map, const cv::Mat& image, int from, int to, cv::Mat& view) {
  const int channels = image.channels();
  const auto stride = static_cast<std::ptrdiff_t>(image.step);
  const std::ptrdiff_t gap = stride - static_cast<std::ptrdiff_t>(image.cols) * channels;  // after each row
  ColorAround around;
  std::uint8_t mixed[3][chunk];
  for (int row = from; row < to; ++row) {
    for (int column = 0; column < map.width; column += chunk) {
      const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(row) * map.width + column;
      const int count = std::min(chunk, map.width - column);
      const std::uint8_t* const seen = map.seen.data() + first;
      for (int k = 0; k < count; ++k) {
        const std::ptrdiff_t offset = seen[k] != 0 ? map.offset[static_cast<std::size_t>(first + k)] : 0;
        const std::uint8_t* const at = image.data + offset * channels + (gap == 0 ? 0 : gap * (offset / image.cols));
        if (channels == 3) {
          // The right pixel's bytes are the last of six: the image may end with them.
          around.aboveLeft[k] = wordAt(at);
          around.aboveRight[k] = wordAt(at + 2) >> 8;
          around.belowLeft[k] = wordAt(at + stride);
          around.belowRight[k] = wordAt(at + stride + 2) >> 8;
        } else {
          constexpr std::uint32_t thrice = 0x010101;
          around.aboveLeft[k] = at[0] * thrice;
          around.aboveRight[k] = at[1] * thrice;
          around.belowLeft[k] = at[stride] * thrice;
          around.belowRight[k] = at[stride + 1] * thrice;
        }
      }
      std::uint8_t* const out = view.ptr(row) + 3 * static_cast<std::ptrdiff_t>(column);
      for (int channel = 0; channel < 3; ++channel) {
        mixColor(around, map.right.data() + first, map.lower.data() + first, seen, count, channel, mixed[channel]);
      }
      for (std::ptrdiff_t k = 0; k < count; ++k) {
        out[3 * k] = mixed[0][k];
        out[3 * k + 1] = mixed[1][k];
        out[3 * k + 2] = mixed[2][k];
      }
    }
  }
}

void halveRow(const std::uint16_t* samples, int width, std::uint16_t* halves) { halve(samples, width, halves); }

void census(const std::uint16_t* image, int width, int height, int from, int to, bool mirrored,
            std::uint8_t* const (&planes)[3]) {
  constexpr int reach = 2;
  constexpr int piece = 2048;
  std::uint16_t lines[5][piece + 2 * reach];
  for (int row = from; row < to; ++row) {
    for (int first = 0; first < width; first += piece) {
      const int count = std::min(piece, width - first);
      for (int k = 0; k < 5; ++k) {
        const std::uint16_t* const source =
            image + static_cast<std::ptrdiff_t>(std::clamp(row + k - reach, 0, height - 1)) * width;
        const int before = std::max(first - reach, 0);
        const int after = std::min(first + count + reach, width);
        std::copy(source + before, source + after, lines[k] + (before - first + reach));
        std::fill(lines[k], lines[k] + (before - first + reach), source[0]);
        std::fill(lines[k] + (after - first + reach), lines[k] + (count + reach + reach), source[width - 1]);
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
          std::uint8_t bits[piece];
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
