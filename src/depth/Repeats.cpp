// SPDX-License-Identifier: Apache-2.0
// Finds texture that repeats along the rows.
#include "src/depth/Repeats.hpp"

#include <algorithm>
#include <cstddef>

namespace stereo::depth {

namespace {

constexpr int reach = 3;  // samples to each side that vote: 49 fit in a byte
constexpr int leastVotes = 4;
constexpr int leastShift = 4;

void add(const std::uint8_t* __restrict from, std::ptrdiff_t count, std::uint8_t* __restrict to) {
  for (std::ptrdiff_t k = 0; k < count; ++k) {
    to[k] = static_cast<std::uint8_t>(to[k] + from[k]);
  }
}

void subtract(const std::uint8_t* __restrict from, std::ptrdiff_t count, std::uint8_t* __restrict to) {
  for (std::ptrdiff_t k = 0; k < count; ++k) {
    to[k] = static_cast<std::uint8_t>(to[k] - from[k]);
  }
}

}  // namespace

RepeatFinder::RepeatFinder(const MatchSize& size, int step, int share, int least)
    : m_step(step),
      m_share(share),
      m_least(least),
      m_columns(size.width / step),
      m_rows(size.height / step),
      m_disparities(size.disparities) {
  const auto samples = static_cast<std::size_t>(m_columns) * static_cast<std::size_t>(m_rows + 1);
  const auto disparities = static_cast<std::size_t>(size.disparities);
  // Rows below the last whole step may have a sample too; nobody asks for it.
  m_larger.assign(samples * disparities, 0);
  m_smaller.assign(samples * disparities, 0);
  m_down.assign(static_cast<std::size_t>(m_columns) * disparities, 0);
  m_votes.assign(disparities, 0);
  m_periods.assign(samples, 0);
  m_found.assign(samples, 0);
  m_marks.assign(samples, 0);
}

const std::uint8_t* RepeatFinder::row(int y) const {
  return m_marks.data() + static_cast<std::ptrdiff_t>(std::min(y / m_step, m_rows - 1)) * m_columns;
}

bool RepeatFinder::endsAt(int row, int column, int period) const {
  const std::ptrdiff_t at = (static_cast<std::ptrdiff_t>(row) * m_columns + column) * m_disparities;
  const std::uint8_t* const larger = m_larger.data() + at;
  return period > leastShift && larger[0] != 0 && larger[period] == 0 &&
         m_smaller[static_cast<std::size_t>(at + period)] != 0;
}

void RepeatFinder::find() {
  const std::ptrdiff_t line = static_cast<std::ptrdiff_t>(m_columns) * m_disparities;
  std::fill(m_down.begin(), m_down.end(), static_cast<std::uint8_t>(0));
  for (int row = 0; row < std::min(reach, m_rows); ++row) {
    add(m_larger.data() + row * line, line, m_down.data());
  }
  for (int row = 0; row < m_rows; ++row) {
    if (row + reach < m_rows) {
      add(m_larger.data() + (row + reach) * line, line, m_down.data());
    }
    if (row > reach) {
      subtract(m_larger.data() + (row - reach - 1) * line, line, m_down.data());
    }
    judgeRow(row);
  }
  grow();
}

void RepeatFinder::judgeRow(int row) {
  const auto column = [this](int k) { return m_down.data() + static_cast<std::ptrdiff_t>(k) * m_disparities; };
  std::fill(m_votes.begin(), m_votes.end(), static_cast<std::uint8_t>(0));
  for (int k = 0; k < std::min(reach, m_columns); ++k) {
    add(column(k), m_disparities, m_votes.data());
  }
  for (int k = 0; k < m_columns; ++k) {
    if (k + reach < m_columns) {
      add(column(k + reach), m_disparities, m_votes.data());
    }
    if (k > reach) {
      subtract(column(k - reach - 1), m_disparities, m_votes.data());
    }
    std::uint8_t most = 0;
    for (std::size_t d = leastShift; d < m_votes.size(); ++d) {
      most = std::max(most, m_votes[d]);
    }
    std::size_t period = leastShift;
    while (m_votes[period] != most) {
      ++period;
    }
    m_periods[at(row, k)] = static_cast<std::uint8_t>(period);
    m_found[at(row, k)] = most >= leastVotes && most * 100 > m_share * m_votes[0] ? 255 : 0;
  }
}

// By a cell to all sides: at the edge of what repeats, half of the window's samples are of other things.
void RepeatFinder::grow() {
  std::fill(m_marks.begin(), m_marks.end(), static_cast<std::uint8_t>(0));
  for (int row = 0; row < m_rows; ++row) {
    for (int k = 0; k < m_columns; ++k) {
      if (m_found[at(row, k)] == 0) {
        continue;
      }
      for (int y = std::max(row - 1, 0); y <= std::min(row + 1, m_rows - 1); ++y) {
        for (int x = std::max(k - 1, 0); x <= std::min(k + 1, m_columns - 1); ++x) {
          m_marks[at(y, x)] = 255;
        }
      }
    }
  }
}

}  // namespace stereo::depth
