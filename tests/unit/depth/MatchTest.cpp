// SPDX-License-Identifier: Apache-2.0
// The semi-global matcher against a plain form of its definition, with each instruction set.
#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include <gtest/gtest.h>

#include "src/depth/Match.hpp"
#include "src/depth/Repeats.hpp"
#include "tests/unit/core/FastPaths.hpp"

using namespace stereo::depth;
using stereo::test::withEachInstructionSet;

namespace {

struct Views {
  MatchSize size;
  std::vector<std::uint8_t> left[3];
  std::vector<std::uint8_t> right[3];
  std::vector<std::uint8_t> beside;
  std::vector<std::uint8_t> above;

  // With a `period` above 0, the right view repeats after so many columns.
  Views(MatchSize given, int shift, cv::RNG& random, int period = 0) : size(given) {
    const auto pixels = static_cast<std::size_t>(size.width * size.height);
    const int rightWidth = size.rightWidth();
    for (int plane = 0; plane < 3; ++plane) {
      left[plane].resize(pixels);
      right[plane].assign(static_cast<std::size_t>(rightWidth * size.height) + 64, 0);
      for (std::uint8_t& bits : right[plane]) {
        bits = static_cast<std::uint8_t>(random.uniform(0, 256));
      }
      for (int y = 0; y < size.height; ++y) {
        for (int x = period; period > 0 && x < rightWidth; ++x) {
          right[plane][static_cast<std::size_t>(y * rightWidth + x)] =
              right[plane][static_cast<std::size_t>(y * rightWidth + x - period)];
        }
        for (int x = 0; x < size.width; ++x) {
          const int column = size.width + MatchSize::pad - 1 - (x - shift);
          const std::uint8_t noise = random.uniform(0, 4) == 0 ? static_cast<std::uint8_t>(random.uniform(0, 256)) : 0;
          left[plane][static_cast<std::size_t>(y * size.width + x)] =
              right[plane][static_cast<std::size_t>(y * rightWidth + column)] ^ noise;
        }
      }
    }
    for (std::size_t k = 0; k < pixels; ++k) {
      beside.push_back(static_cast<std::uint8_t>(random.uniform(9, 21)));
      above.push_back(static_cast<std::uint8_t>(random.uniform(9, 21)));
    }
  }

  MatchInput input() const {
    return {size,
            {left[0].data(), left[1].data(), left[2].data()},
            {right[0].data(), right[1].data(), right[2].data()},
            beside.data(),
            above.data()};
  }

  int cost(int x, int y, int d) const {
    int bits = 0;
    const int column = size.width + MatchSize::pad - 1 - (x - (d + MatchSize::least));
    for (int plane = 0; plane < 3; ++plane) {
      bits +=
          std::popcount(static_cast<unsigned>(left[plane][static_cast<std::size_t>(y * size.width + x)] ^
                                              right[plane][static_cast<std::size_t>(y * size.rightWidth() + column)]));
    }
    return bits;
  }
};

struct Found {
  std::vector<std::int16_t> disparity;
  std::vector<std::uint8_t> flags;
};

// All rows in one strip, straight from the definition.
Found plainly(const Views& v) {
  const int W = v.size.width;
  const int H = v.size.height;
  const int D = v.size.disparities;
  const auto at = [&](int x, int y, int d) { return static_cast<std::size_t>((y * W + x) * D + d); };
  std::vector<int> sums(static_cast<std::size_t>(W * H * D), 0);
  for (const auto& [dx, dy] :
       {std::pair(-1, 0), std::pair(1, 0), std::pair(-1, -1), std::pair(0, -1), std::pair(1, -1)}) {
    std::vector<int> path(sums.size());
    for (int y = 0; y < H; ++y) {
      for (int step = 0; step < W; ++step) {
        const int x = dx == 1 && dy == 0 ? W - 1 - step : step;
        const int fromX = x + dx;
        const int fromY = y + dy;
        const bool begins = fromX < 0 || fromX >= W || fromY < 0;
        const auto penalty = dy < 0 ? v.above[static_cast<std::size_t>(y * W + x)]
                                    : v.beside[static_cast<std::size_t>(y * W + std::max(x, std::min(fromX, W - 1)))];
        int least = 0;
        if (!begins) {
          least = *std::min_element(path.begin() + static_cast<std::ptrdiff_t>(at(fromX, fromY, 0)),
                                    path.begin() + static_cast<std::ptrdiff_t>(at(fromX, fromY, 0)) + D);
        }
        for (int d = 0; d < D; ++d) {
          int best = 0;
          if (!begins) {
            best = std::min(path[at(fromX, fromY, d)], least + penalty);
            for (const int next : {d - 1, d + 1}) {
              if (next >= 0 && next < D) {
                best = std::min(best, path[at(fromX, fromY, next)] + 3);
              }
            }
          }
          path[at(x, y, d)] = v.cost(x, y, d) + best - least;
        }
      }
    }
    for (std::size_t k = 0; k < sums.size(); ++k) {
      sums[k] += path[k];
    }
  }
  Found found;
  for (int y = 0; y < H; ++y) {
    for (int x = 0; x < W; ++x) {
      const int* const s = &sums[at(x, y, 0)];
      const int best = static_cast<int>(std::min_element(s, s + D) - s);
      int flags = best == D - 1 ? matchAtLimit : 0;
      for (int d = 0; d < D; ++d) {
        const int margin = s[d] - s[best];
        if (std::abs(d - best) > 1 && (margin < 2 || margin * 100 < 6 * s[best])) {
          flags |= matchAmbiguous;
        }
      }
      // What the pixel of the right view prefers; the nearer of equals.
      const int column = x - best;
      int other = -1;
      int least = 255;
      for (int d = D - 1; d >= 0; --d) {
        const int from = column + d;
        if (from >= 0 && from < W && sums[at(from, y, d)] < least) {
          least = sums[at(from, y, d)];
          other = d;
        }
      }
      flags |= std::abs(other - best) > 1 ? matchDisagrees : 0;
      int between = 0;
      if (best > 0 && best < D - 1) {
        const int rise = std::max(s[best - 1], s[best + 1]) - s[best];
        between = rise > 0 ? (s[best - 1] - s[best + 1]) * 8 / rise : 0;
      }
      found.disparity.push_back(static_cast<std::int16_t>((best + MatchSize::least) * 16 + between));
      found.flags.push_back(static_cast<std::uint8_t>(flags));
    }
  }
  return found;
}

struct Rivals {
  std::vector<std::uint8_t> larger;
  std::vector<std::uint8_t> smaller;
};

// What the samples say of other disparities, straight from the definition.
Rivals rivalsPlainly(const Views& v, const Found& found, int step, int leastIndex) {
  const int W = v.size.width;
  const int D = v.size.disparities;
  Rivals all;
  for (int y = step / 2; y < v.size.height; y += step) {
    for (int x = step / 2; x < W / step * step; x += step) {
      std::vector<int> around(static_cast<std::size_t>(D), 0);
      for (int d = 0; d < D; ++d) {
        for (const int row : {y - 1, y}) {
          int sum = 0;
          for (int column = std::max(x - 4, 0); column <= std::min(x + 4, W - 1); ++column) {
            sum += v.cost(column, row, d);
          }
          around[static_cast<std::size_t>(d)] += sum / 2;
        }
      }
      const auto costOf = [&](int d) { return d < 0 || d >= D ? 255 : around[static_cast<std::size_t>(d)]; };
      const int index = ((found.disparity[static_cast<std::size_t>(y * W + x)] + 8) >> 4) - MatchSize::least;
      const int own = std::min({costOf(index - 1), costOf(index), costOf(index + 1)});
      const int limit = own + own / 4 + 20;
      for (const int way : {1, -1}) {
        int first = 1;
        while (costOf(index + way * first) < limit + 20) {
          ++first;
        }
        first = std::max(first, way > 0 ? leastIndex - index : 0);
        for (int k = 0; k < D; ++k) {
          bool fits = false;
          for (int by = k < 32 ? -2 : -4; by <= (k < 32 ? 2 : 4); ++by) {
            fits = fits || (k + by >= first && costOf(index + way * (k + by)) < limit);
          }
          const bool isSaid = own <= 40 && (fits || (way > 0 && k == 0));
          (way > 0 ? all.larger : all.smaller).push_back(isSaid ? 1 : 0);
        }
      }
    }
  }
  return all;
}

void compareRivals(MatchSize size, int shift, int period, int step, int leastIndex) {
  cv::RNG random(static_cast<std::uint64_t>(size.width * 1000 + period));
  const Views views(size, shift, random, period);
  const Found expected = plainly(views);
  const Rivals rivals = rivalsPlainly(views, expected, step, leastIndex);
  ASSERT_GT(std::count(rivals.larger.begin(), rivals.larger.end(), 1), 20);
  withEachInstructionSet([&] {
    Found found{std::vector<std::int16_t>(expected.disparity.size()), std::vector<std::uint8_t>(expected.flags.size())};
    Rivals says{std::vector<std::uint8_t>(rivals.larger.size(), 2),
                std::vector<std::uint8_t>(rivals.smaller.size(), 2)};
    MatchScratch scratch(size);
    matchStrip(
        views.input(), 0, 0, size.height, scratch,
        {found.disparity.data(), found.flags.data(), {step, leastIndex, says.larger.data(), says.smaller.data()}});
    EXPECT_EQ(found.disparity, expected.disparity);
    EXPECT_TRUE(says.larger == rivals.larger);
    EXPECT_TRUE(says.smaller == rivals.smaller);
  });
}

// Shares in percent of a view's cells, of those that are not at its border.
double repeatsIn(const Views& views, int least) {
  const auto pixels = static_cast<std::size_t>(views.size.width * views.size.height);
  std::vector<std::int16_t> disparity(pixels);
  std::vector<std::uint8_t> flags(pixels);
  MatchScratch scratch(views.size);
  RepeatFinder repeats(views.size, 4, 66, least);
  for (int run = 0; run < 2; ++run) {  // the second with what the first left behind
    matchStrip(views.input(), 0, 0, views.size.height, scratch, {disparity.data(), flags.data(), repeats.output()});
    repeats.find();
  }
  int marked = 0;
  int all = 0;
  for (int y = 4; y < views.size.height - 4; ++y) {
    for (int k = 1; k < repeats.lastMark(); ++k) {
      marked += repeats.row(y)[k] != 0 ? 1 : 0;
      ++all;
    }
  }
  return 100.0 * marked / all;
}

void compare(MatchSize size, int shift) {
  cv::RNG random(static_cast<std::uint64_t>(size.width * 1000 + size.disparities));
  const Views views(size, shift, random);
  const Found expected = plainly(views);
  withEachInstructionSet([&] {
    Found found{std::vector<std::int16_t>(expected.disparity.size()), std::vector<std::uint8_t>(expected.flags.size())};
    MatchScratch scratch(size);
    for (int run = 0; run < 2; ++run) {  // the second with what the first left behind
      matchStrip(views.input(), 0, 0, size.height, scratch, {found.disparity.data(), found.flags.data()});
      EXPECT_EQ(found.disparity, expected.disparity);
      EXPECT_EQ(found.flags, expected.flags);
    }
  });
}

}  // namespace

TEST(WideMatch, IsWhatItsDefinitionSays) {
  compare({40, 12, 32}, 7);
  compare({61, 9, 64}, 0);
  compare({33, 7, 96}, -2);
}

TEST(WideMatch, SearchesUpTo256Disparities) { compare({45, 5, 256}, 30); }

TEST(WideMatch, SamplesSayWhatElseWouldFit) {
  compareRivals({40, 12, 32}, 3, 11, 4, 0);
  compareRivals({61, 13, 96}, 5, 17, 4, 0);
  compareRivals({61, 13, 96}, 5, 17, 2, 30);
  compareRivals({45, 8, 64}, 30, 0, 4, 0);
  compareRivals({61, 13, 96}, 40, 17, 4, 0);
  compareRivals({46, 15, 32}, -2, 9, 4, 0);  // with a row of samples below the last whole step
}

TEST(WideMatch, TextureThatRepeatsIsFoundAndOtherTextureIsNot) {
  cv::RNG random(9);
  const MatchSize size{120, 40, 64};
  for (const int period : {7, 13, 24}) {
    EXPECT_GT(repeatsIn(Views(size, 5, random, period), 0), 95.0) << period;
  }
  EXPECT_EQ(repeatsIn(Views(size, 5, random), 0), 0.0);
  // Only what begins at an index counts: 5 and its repeats by 24 have the indexes 7, 31 and 55.
  EXPECT_GT(repeatsIn(Views(size, 5, random, 24), 50), 95.0);
  EXPECT_EQ(repeatsIn(Views(size, 5, random, 24), 60), 0.0);
}

TEST(WideMatch, AStripDependsOnItsWarmUpOnly) {
  const MatchSize size{40, 20, 32};
  cv::RNG random(4);
  const Views views(size, 5, random);
  const auto pixels = static_cast<std::size_t>(size.width * size.height);
  std::vector<std::int16_t> all(pixels, -1);
  std::vector<std::int16_t> strip(pixels, -1);
  std::vector<std::uint8_t> flags(pixels);
  MatchScratch scratch(size);
  matchStrip(views.input(), 0, 0, 20, scratch, {all.data(), flags.data()});
  matchStrip(views.input(), 0, 8, 20, scratch, {strip.data(), flags.data()});
  EXPECT_TRUE(std::equal(all.begin() + 8 * 40, all.end(), strip.begin() + 8 * 40));
  EXPECT_TRUE(std::all_of(strip.begin(), strip.begin() + 8 * 40, [](int d) { return d == -1; }));
}
