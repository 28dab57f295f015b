// SPDX-License-Identifier: Apache-2.0
// Finds texture that repeats along the rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "src/depth/Match.hpp"

namespace stereo::depth {

/// Where most samples of a neighborhood say that a disparity larger by the same number of columns fits as well: the
/// matched one may be wrong, and the true thing nearer. In other texture single samples say so by chance, each of
/// another number of columns.
class RepeatFinder {
public:
  /// For views matched at `size`, a sample every `step` pixels. `share`: percent of the samples that say anything which
  /// must agree. Only disparities with at least the index `least` count.
  RepeatFinder(const MatchSize& size, int step, int share, int least);

  /// Where the matcher is to write; overwritten frame by frame.
  RivalOutput output() { return {m_step, m_least, m_larger.data(), m_smaller.data()}; }

  /// Takes what the matcher wrote. Not shared among threads.
  void find();

  /// Marks (0 or 255) of a row of pixels, one for each `step` columns; those beyond `lastMark()` have the last one's.
  const std::uint8_t* row(int y) const;
  int lastMark() const { return m_columns - 1; }
  int step() const { return m_step; }
  /// Whether at a sample a disparity smaller by `period` columns fits, but not one that is larger by as much. Never for
  /// the shortest period that is looked for: shorter ones look like it.
  bool endsAt(int row, int column, int period) const;

  int rows() const { return m_rows; }
  /// By how many columns the texture around a marked cell repeats.
  int periodAt(int row, int column) const { return m_periods[at(row, column)]; }

private:
  std::size_t at(int row, int column) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(m_columns) + static_cast<std::size_t>(column);
  }
  void judgeRow(int row);
  void grow();

  int m_step;
  int m_share;
  int m_least;
  int m_columns;
  int m_rows;
  int m_disparities;
  std::vector<std::uint8_t> m_larger;
  std::vector<std::uint8_t> m_smaller;
  std::vector<std::uint8_t> m_down;   // sums over the rows of the window, a column of `disparities` for each sample
  std::vector<std::uint8_t> m_votes;  // sums over the window
  std::vector<std::uint8_t> m_periods;
  std::vector<std::uint8_t> m_found;
  std::vector<std::uint8_t> m_marks;
};

}  // namespace stereo::depth
