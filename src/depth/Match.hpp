// SPDX-License-Identifier: Apache-2.0
// Semi-global matching of two views whose rows are epipolar lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace stereo::depth {

/// What is searched. Disparity index i stands for the disparity i + `least`.
struct MatchSize {
  static constexpr int least = -2;  ///< columns: room for a parallax of noise about zero
  static constexpr int pad = 4;     ///< columns that the right view has beyond the left one's last

  int width = 0;  ///< of the left view
  int height = 0;
  int disparities = 0;  ///< a multiple of 32

  /// Columns of the right view: `disparities` of them lie to the left of the left view's first.
  int rightWidth() const { return width + disparities + pad; }
};

/// Descriptors of both views by row: three planes of 8 bits each. The right one's rows are mirrored, so that rising
/// disparities are rising addresses: column c of the right view (0 is the left view's first) is at
/// width + pad - 1 - c.
struct MatchInput {
  MatchSize size;
  const std::uint8_t* left[3];        ///< `width` a row
  const std::uint8_t* right[3];       ///< `rightWidth()` a row
  const std::uint8_t* besidePenalty;  ///< P2 between a pixel and the one left of it, `width` a row
  const std::uint8_t* abovePenalty;   ///< P2 between a pixel and those above it, `width` a row
};

/// What else would fit at some pixels, by the costs around them alone: summed over nine columns and two rows. The paths
/// decide among several disparities that fit, but where texture repeats they only carry on what began at its edge.
struct RivalOutput {
  int step = 0;                     ///< pixels between the samples, even; the first one is at half of that
  int least = 0;                    ///< index of the smallest disparity that counts as larger
  std::uint8_t* larger = nullptr;   ///< `disparities` bytes a sample: 1 at k if the disparity larger by about k fits as
                                    ///< well, behind some that don't; at 0: whether the sample says anything
  std::uint8_t* smaller = nullptr;  ///< the same for disparities smaller by k, without the byte at 0
};

/// What was found, `width` values a row.
struct MatchOutput {
  std::int16_t* disparity;  ///< in 1/16 of a column
  std::uint8_t* flags;      ///< `MatchFlag`s
  RivalOutput rivals = {};  ///< none without `larger`
};

enum MatchFlag : std::uint8_t {
  matchDisagrees = 1,  ///< the right view prefers another pixel
  matchAmbiguous = 2,  ///< another disparity fits nearly as well
  matchAtLimit = 4     ///< the largest disparity of the search
};

/// Working memory of one strip.
class MatchScratch {
public:
  explicit MatchScratch(const MatchSize& size);

  std::vector<std::uint8_t> paths[3];  ///< from above left, above, above right: a column of costs for each pixel
  std::vector<std::uint8_t> least[3];  ///< their minima
  std::vector<std::uint8_t> costs;     ///< of a row
  std::vector<std::uint8_t> around;    ///< costs about each sample, of two rows
  std::vector<std::uint8_t> beyond;    ///< costs of a sample
  std::vector<std::uint8_t> sums;      ///< over the paths, of a row
  std::vector<std::uint8_t> lines;     ///< short-lived columns of costs
  std::vector<std::uint8_t> rightBest;
  std::vector<std::uint8_t> rightIndex;
};

/// Matches the rows [from, to) of strip after rows [warm, from), whose results are dropped; with rivals, at least one
/// of these unless `from` is 0. Costs are Hamming distances of the descriptors (0 to 24), summed over five paths: from
/// the left, the right, and three from above. A path's cost is
///   L(p, d) = C(p, d) + min(L(q, d), L(q, d - 1) + P1, L(q, d + 1) + P1, min L(q) + P2) - min L(q)
/// with q the pixel before p. All in 8 bits: a path's cost stays within 24 + P2, so P2 is at most 26.
void matchStrip(const MatchInput& input, int warm, int from, int to, MatchScratch& scratch, const MatchOutput& output);

}  // namespace stereo::depth
