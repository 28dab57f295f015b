// SPDX-License-Identifier: Apache-2.0
// Kernels of the semi-global matcher: see KernelForms.hpp. Included by Match.cpp only, several times.

typedef std::uint8_t Bytes __attribute__((vector_size(STEREO_DEPTH_LANES)));
typedef std::uint16_t Pairs __attribute__((vector_size(STEREO_DEPTH_LANES)));
constexpr int lanes = STEREO_DEPTH_LANES;

inline Bytes load(const std::uint8_t* from) {
  Bytes value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

inline void store(std::uint8_t* to, Bytes value) { std::memcpy(to, &value, sizeof value); }

inline Bytes all(int value) { return Bytes{} + static_cast<std::uint8_t>(value); }

inline Bytes smaller(Bytes a, Bytes b) { return a < b ? a : b; }

// Bits that come from the neighboring byte have to be masked away.
template <int by>
inline Bytes shifted(Bytes value) {
  return reinterpret_cast<Bytes>(reinterpret_cast<Pairs>(value) >> by);
}

typedef std::uint8_t Sixteen __attribute__((vector_size(16)));

// Smaller of the two bytes 16 apart.
inline Sixteen folded(Bytes value) {
#if STEREO_DEPTH_LANES == 32
  const Sixteen low = __builtin_shufflevector(value, value, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const Sixteen high =
      __builtin_shufflevector(value, value, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
  return low < high ? low : high;
#else
  return value;
#endif
}

struct Four {
  std::uint8_t of[4];
};

// Smallest byte of each of four vectors: pairs of them are interleaved and folded until four bytes are left.
inline Four smallestOf(Bytes first, Bytes second, Bytes third, Bytes fourth) {
  const auto least = [](Sixteen a, Sixteen b) { return a < b ? a : b; };
  const auto interleaved = [&least](Sixteen a, Sixteen b) {
    return least(__builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23),
                 __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31));
  };
  const Sixteen one = interleaved(folded(first), folded(second));
  const Sixteen two = interleaved(folded(third), folded(fourth));
  Sixteen all4 = least(__builtin_shufflevector(one, two, 0, 1, 16, 17, 2, 3, 18, 19, 4, 5, 20, 21, 6, 7, 22, 23),
                       __builtin_shufflevector(one, two, 8, 9, 24, 25, 10, 11, 26, 27, 12, 13, 28, 29, 14, 15, 30, 31));
  all4 = least(all4, __builtin_shufflevector(all4, all4, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7));
  all4 = least(all4, __builtin_shufflevector(all4, all4, 4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15, 8, 9, 10, 11));
  Four result;
  std::memcpy(&result, &all4, sizeof result);
  return result;
}

// Number of bits in each byte of a, b and c together: a full adder first, then ones and twos in nibbles.
inline Bytes bitsOf(Bytes a, Bytes b, Bytes c) {
  const Bytes differ = a ^ b;
  Bytes ones = differ ^ c;
  Bytes twos = (a & b) | (c & differ);
  ones = ones - (shifted<1>(ones) & 0x55);
  twos = twos - (shifted<1>(twos) & 0x55);
  ones = (ones & 0x33) + (shifted<2>(ones) & 0x33);
  twos = (twos & 0x33) + (shifted<2>(twos) & 0x33);
  const Bytes sum = ones + twos + twos;
  return (sum & 0x0f) + (shifted<4>(sum) & 0x0f);
}

// One step of a path: `before` is the column of costs of the pixel before, `jump` its minimum plus P2.
inline Bytes step(const std::uint8_t* before, Bytes cost, Bytes least, Bytes jump) {
  const Bytes beside = smaller(load(before - 1), load(before + 1)) + static_cast<std::uint8_t>(smallPenalty);
  return smaller(smaller(load(before), beside), jump) - least + cost;
}

// Costs of a row, and the paths from the left and from above.
void forwardRow(const MatchInput& input, int row, MatchScratch& scratch) {
  const int width = input.size.width;
  const int count = input.size.disparities;
  const std::ptrdiff_t stride = count + gap;
  const std::ptrdiff_t leftRow = static_cast<std::ptrdiff_t>(row) * width;
  const std::ptrdiff_t rightRow = static_cast<std::ptrdiff_t>(row) * input.size.rightWidth();
  std::uint8_t* const paths[3] = {scratch.paths[0].data() + gap, scratch.paths[1].data() + gap,
                                  scratch.paths[2].data() + gap};
  // Columns of the pixel to the left (before, now), and of the pixel above left, which is overwritten before its turn.
  std::uint8_t* before = scratch.lines.data() + gap;
  std::uint8_t* now = before + stride;
  std::uint8_t* aboveLeft = now + stride;
  std::uint8_t* above = aboveLeft + stride;
  int leastBefore = 0;
  int leastAboveLeft = 0;
  for (int x = 0; x < width; ++x) {
    const Bytes l0 = all(input.left[0][leftRow + x]);
    const Bytes l1 = all(input.left[1][leftRow + x]);
    const Bytes l2 = all(input.left[2][leftRow + x]);
    const std::ptrdiff_t at = rightRow + width + MatchSize::pad - 1 - x + MatchSize::least;
    const int beside = input.besidePenalty[leftRow + x];
    const int over = input.abovePenalty[leftRow + x];
    const int least1 = scratch.least[1][static_cast<std::size_t>(x)];
    const int least2 = scratch.least[2][static_cast<std::size_t>(x) + 1];
    const Bytes m = all(leastBefore);
    const Bytes m0 = all(leastAboveLeft);
    const Bytes m1 = all(least1);
    const Bytes m2 = all(least2);
    const Bytes j = all(leastBefore + beside);
    const Bytes j0 = all(leastAboveLeft + over);
    const Bytes j1 = all(least1 + over);
    const Bytes j2 = all(least2 + over);
    Bytes n = all(255);
    Bytes n0 = n;
    Bytes n1 = n;
    Bytes n2 = n;
    std::uint8_t* const cost = scratch.costs.data() + static_cast<std::ptrdiff_t>(x) * count;
    std::uint8_t* const sum = scratch.sums.data() + static_cast<std::ptrdiff_t>(x) * count;
    std::uint8_t* const path0 = paths[0] + x * stride;
    std::uint8_t* const path1 = paths[1] + x * stride;
    std::uint8_t* const path2 = paths[2] + x * stride;
    // The new column of path 1 must not be written before its neighbors are read: it waits for one step.
    Bytes late1 = Bytes{};
    for (int d = 0; d < count; d += lanes) {
      const Bytes c = bitsOf(l0 ^ load(input.right[0] + at + d), l1 ^ load(input.right[1] + at + d),
                             l2 ^ load(input.right[2] + at + d));
      store(cost + d, c);
      const Bytes v = step(before + d, c, m, j);
      const Bytes v0 = step(aboveLeft + d, c, m0, j0);
      const Bytes v1 = step(path1 + d, c, m1, j1);
      const Bytes v2 = step(path2 + stride + d, c, m2, j2);
      store(above + d, load(path0 + d));
      store(now + d, v);
      store(path0 + d, v0);
      store(path2 + d, v2);
      if (d > 0) {
        store(path1 + d - lanes, late1);
      }
      late1 = v1;
      n = smaller(n, v);
      n0 = smaller(n0, v0);
      n1 = smaller(n1, v1);
      n2 = smaller(n2, v2);
      store(sum + d, v + v0 + v1 + v2);
    }
    store(path1 + count - lanes, late1);
    leastAboveLeft = scratch.least[0][static_cast<std::size_t>(x)];
    const Four least4 = smallestOf(n, n0, n1, n2);
    leastBefore = least4.of[0];
    scratch.least[0][static_cast<std::size_t>(x)] = least4.of[1];
    scratch.least[1][static_cast<std::size_t>(x)] = least4.of[2];
    scratch.least[2][static_cast<std::size_t>(x)] = least4.of[3];
    std::swap(before, now);
    std::swap(above, aboveLeft);
  }
}

// Adds half the costs over the columns about each sample to those of the row before.
void addAround(const MatchSize& size, int step, bool isFirst, MatchScratch& scratch) {
  const int count = size.disparities;
  const int samples = size.width / step;
  for (int k = 0; k < samples; ++k) {
    const int x = k * step + step / 2;
    const int first = x < aroundReach ? 0 : x - aroundReach;
    const int last = x + aroundReach < size.width ? x + aroundReach : size.width - 1;
    std::uint8_t* const around = scratch.around.data() + static_cast<std::ptrdiff_t>(k) * count;
    for (int d = 0; d < count; d += lanes) {
      const std::uint8_t* cost = scratch.costs.data() + static_cast<std::ptrdiff_t>(first) * count + d;
      Bytes sum = load(cost);
      for (int c = first; c < last; ++c) {
        cost += count;
        sum = sum + load(cost);
      }
      sum = shifted<1>(sum) & 0x7f;
      store(around + d, isFirst ? sum : load(around + d) + sum);
    }
  }
}

// Costs of a sample `steps` steps from its own disparity: 255 for those before the costs have risen above what a rival
// may have, for those before `least` steps, and for those that don't exist.
inline void costsBeyond(const std::uint8_t* around, std::ptrdiff_t step, int steps, int least, int rise, int count,
                        std::uint8_t* beyond) {
  int k = 1;
  while (k <= steps && around[k * step] < rise) {
    ++k;
  }
  k = k > least ? k : least;
  std::memset(beyond, 255, static_cast<std::size_t>(count));
  for (; k <= steps; ++k) {
    beyond[k] = around[k * step];
  }
}

// Which of these costs, or of those up to two or four steps from them, are below a bound.
inline void markFitting(const std::uint8_t* beyond, int count, int bound, std::uint8_t* fits) {
  const Bytes limit = all(bound);
  for (int d = 0; d < count; d += lanes) {
    const int reach = d < 32 ? 2 : 4;
    Bytes least = load(beyond + d);
    for (int by = 1; by <= reach; ++by) {
      least = smaller(least, smaller(load(beyond + d - by), load(beyond + d + by)));
    }
    store(fits + d, least < limit ? all(1) : all(0));
  }
}

// What the samples of a row say of disparities other than their own.
void rivalRow(const MatchSize& size, const RivalOutput& rivals, int row, const std::int16_t* disparity,
              MatchScratch& scratch) {
  const int count = size.disparities;
  const int samples = size.width / rivals.step;
  std::uint8_t* const beyond = scratch.beyond.data() + gap;
  for (int k = 0; k < samples; ++k) {
    const int index = ((disparity[k * rivals.step + rivals.step / 2] + 8) >> 4) - MatchSize::least;
    const std::uint8_t* const around = scratch.around.data() + static_cast<std::ptrdiff_t>(k) * count;
    const std::ptrdiff_t at = (static_cast<std::ptrdiff_t>(row / rivals.step) * samples + k) * count;
    int own = around[index];
    own = index > 0 && around[index - 1] < own ? around[index - 1] : own;
    own = index + 1 < count && around[index + 1] < own ? around[index + 1] : own;
    if (own > worstMatch) {
      std::memset(rivals.larger + at, 0, static_cast<std::size_t>(count));
      std::memset(rivals.smaller + at, 0, static_cast<std::size_t>(count));
      continue;
    }
    const int limit = own + own / 4 + rivalMargin;
    const int rise = limit + leastRise;
    costsBeyond(around + index, 1, count - 1 - index, rivals.least - index, rise, count, beyond);
    markFitting(beyond, count, limit, rivals.larger + at);
    costsBeyond(around + index, -1, index, 0, rise, count, beyond);
    markFitting(beyond, count, limit, rivals.smaller + at);
    rivals.larger[at] = 1;
  }
}

// Index of the smallest sum, the first of several, and whether a sum that is not next to it comes near it: by less than
// 6 percent, or 2.
struct Winner {
  int index;
  bool isAmbiguous;
};

inline Winner winnerOf(const std::uint8_t* sums, int count, int smallest, Bytes lane) {
  const Bytes wanted = all(smallest);
  const int margin = (6 * smallest + 99) / 100;
  const Bytes bound = all(smallest + (margin > 2 ? margin : 2));
  const Bytes none = all(255);
  Bytes index = lane;
  Bytes best = none;
  Bytes first = none;
  Bytes last = none;  // 255 minus the index
  for (int d = 0; d < count; d += lanes) {
    const Bytes s = load(sums + d);
    best = smaller(best, s == wanted ? index : none);
    const auto isNear = s < bound;
    first = smaller(first, isNear ? index : none);
    last = smaller(last, isNear ? none - index : none);
    index = index + static_cast<std::uint8_t>(lanes);
  }
  const Four least = smallestOf(best, first, last, last);
  return {least.of[0], least.of[1] + 1 < least.of[0] || 255 - least.of[2] > least.of[0] + 1};
}

// The path from the right, and the winners of a row.
void backwardRow(const MatchInput& input, int row, MatchScratch& scratch, const MatchOutput& output) {
  const int width = input.size.width;
  const int count = input.size.disparities;
  const std::ptrdiff_t stride = count + gap;
  std::uint8_t* before = scratch.lines.data() + gap;
  std::uint8_t* now = before + stride;
  std::fill_n(before, count, static_cast<std::uint8_t>(0));
  std::fill(scratch.rightBest.begin(), scratch.rightBest.end(), static_cast<std::uint8_t>(255));
  std::fill(scratch.rightIndex.begin(), scratch.rightIndex.end(), static_cast<std::uint8_t>(255));
  std::int16_t* const disparity = output.disparity + static_cast<std::ptrdiff_t>(row) * width;
  std::uint8_t* const flags = output.flags + static_cast<std::ptrdiff_t>(row) * width;
  const std::uint8_t* const penalty = input.besidePenalty + static_cast<std::ptrdiff_t>(row) * width;
  Bytes lane = all(0);
  for (int k = 0; k < lanes; ++k) {
    lane[k] = static_cast<std::uint8_t>(k);
  }
  int least = 0;
  for (int x = width - 1; x >= 0; --x) {
    const std::uint8_t* const cost = scratch.costs.data() + static_cast<std::ptrdiff_t>(x) * count;
    std::uint8_t* const sum = scratch.sums.data() + static_cast<std::ptrdiff_t>(x) * count;
    const int beside = x + 1 < width ? penalty[x + 1] : 0;
    std::uint8_t* const best = scratch.rightBest.data() + (width + MatchSize::pad - 1 - x + MatchSize::least);
    std::uint8_t* const bestIndex = scratch.rightIndex.data() + (width + MatchSize::pad - 1 - x + MatchSize::least);
    const Bytes m = all(least);
    const Bytes j = all(least + beside);
    Bytes n = all(255);
    Bytes smallest = n;
    Bytes index = lane;
    for (int d = 0; d < count; d += lanes) {
      const Bytes v = step(before + d, load(cost + d), m, j);
      store(now + d, v);
      n = smaller(n, v);
      const Bytes s = load(sum + d) + v;
      store(sum + d, s);
      smallest = smaller(smallest, s);
      const Bytes b = load(best + d);
      const auto better = s < b;
      store(best + d, better ? s : b);
      store(bestIndex + d, better ? index : load(bestIndex + d));
      index = index + static_cast<std::uint8_t>(lanes);
    }
    const Four least2 = smallestOf(n, smallest, smallest, smallest);
    least = least2.of[0];
    const int smallestSum = least2.of[1];
    const Winner winner = winnerOf(sum, count, smallestSum, lane);
    int between = 0;
    if (winner.index > 0 && winner.index < count - 1) {
      const int under = sum[winner.index - 1];
      const int over = sum[winner.index + 1];
      const int rise = (under > over ? under : over) - smallestSum;
      between = rise > 0 ? (under - over) * 8 / rise : 0;
    }
    disparity[x] = static_cast<std::int16_t>((winner.index + MatchSize::least) * 16 + between);
    flags[x] = static_cast<std::uint8_t>((winner.index == count - 1 ? matchAtLimit : 0) |
                                         (winner.isAmbiguous ? matchAmbiguous : 0));
    std::swap(before, now);
  }
  if (output.rivals.larger != nullptr && row % output.rivals.step == output.rivals.step / 2) {
    rivalRow(input.size, output.rivals, row, disparity, scratch);
  }
  const std::uint8_t* const rightIndex = scratch.rightIndex.data() + (width + MatchSize::pad - 1 + MatchSize::least);
  for (int x = 0; x < width; ++x) {
    const int index = ((disparity[x] + 8) >> 4) - MatchSize::least;
    const int other = rightIndex[index - x];
    if (std::abs(other - index) > 1) {
      flags[x] = static_cast<std::uint8_t>(flags[x] | matchDisagrees);
    }
  }
}
