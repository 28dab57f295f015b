// SPDX-License-Identifier: Apache-2.0
// Finds things that are too near for the search.
#pragma once

#include <cstdint>
#include <vector>

#include "src/depth/Match.hpp"
#include "src/depth/Repeats.hpp"

namespace stereo::depth {

/// Matches both views at a quarter of their size, up to four times the parallax: what is nearer than the search reaches
/// would otherwise be taken for whatever fits by chance.
class NearGuard {
public:
  /// For views that are matched at `size`.
  explicit NearGuard(const MatchSize& size);

  /// Searches the views (`MatchSize::width` and `rightWidth()` columns). Blocks; not shared among threads.
  void find(const std::uint16_t* left, const std::uint16_t* right);

  /// Marks of a row of the left view, one for each `columns` of its columns: what is too near itself, and what is
  /// within about four pixels of that or may be too near, since texture repeats.
  static constexpr int columns = 4;
  const std::uint8_t* nearRow(int y) const { return m_near.data() + firstOf(y); }
  const std::uint8_t* besideRow(int y) const { return m_beside.data() + firstOf(y); }
  int lastMark() const { return m_size.width - 1; }

private:
  std::ptrdiff_t firstOf(int y) const;
  void mark();

  MatchSize m_full;
  MatchSize m_size;
  std::vector<std::uint16_t> m_left;
  std::vector<std::uint16_t> m_right;
  std::vector<std::uint8_t> m_leftCensus[3];
  std::vector<std::uint8_t> m_rightCensus[3];
  std::vector<std::uint8_t> m_penalties;
  std::vector<std::int16_t> m_disparity;
  std::vector<std::uint8_t> m_flags;
  std::vector<std::uint8_t> m_near;
  std::vector<std::uint8_t> m_beside;
  MatchScratch m_scratch;
  RepeatFinder m_repeats;
};

}  // namespace stereo::depth
