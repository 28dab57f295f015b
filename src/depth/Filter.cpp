// SPDX-License-Identifier: Apache-2.0
// Drops refined disparities that are not to be trusted, and says why.
#include "src/depth/Filter.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace stereo::depth {

namespace {

constexpr int maxWidth = 4096;    // of a disparity image
constexpr int mostMarked = 30;    // percent of a surface
constexpr int leastEnd = 15;      // percent of the strip where a surface ends
constexpr int widestReach = 512;  // columns that a disparity may span: more than any search

// Largest value of the columns [-border, width + border) within `reach` rows; values below `least` do not count.
void largestDown(const Plane& evidence, int row, int reach, int width, float least, float* most) {
  for (int x = -Plane::border; x < width + Plane::border; ++x) {
    most[x] = noDisparity;
  }
  for (int dy = -reach; dy <= reach; ++dy) {
    const float* const line = evidence.row(row + dy);
    for (int x = -Plane::border; x < width + Plane::border; ++x) {
      const float value = line[x] >= least ? line[x] : noDisparity;
      most[x] = value > most[x] ? value : most[x];
    }
  }
}

void largestAlong(const float* __restrict values, int reach, int width, float* __restrict most) {
  for (int x = 0; x < width; ++x) {
    most[x] = values[x];  // NOLINT(clang-analyzer-core.uninitialized.Assign): columns beside the row are filled too
  }
  for (int dx = 1; dx <= reach; ++dx) {
    for (int x = 0; x < width; ++x) {
      const float value = values[x - dx] > values[x + dx] ? values[x - dx] : values[x + dx];
      most[x] = value > most[x] ? value : most[x];
    }
  }
}

}  // namespace

void findHidden(const Plane& disparity, int width, int from, int to, float step, std::uint8_t* hidden) {
  float nearest[maxWidth + 2 * widestReach];
  const int places = width + 2 * widestReach;
  for (int row = from; row < to; ++row) {
    std::fill_n(nearest, places, noDisparity);
    const float* const d = disparity.row(row);
    const auto place = [&](int x) {
      // NOLINTNEXTLINE(bugprone-incorrect-roundings): what is negative is outside, by however much
      return std::clamp(static_cast<int>(static_cast<float>(x + widestReach) - d[x] + 0.5F), 0, places - 1);
    };
    for (int x = 0; x < width; ++x) {
      if (d[x] != noDisparity) {
        float& n = nearest[place(x)];
        n = std::max(n, d[x]);
      }
    }
    std::uint8_t* const out = hidden + static_cast<std::ptrdiff_t>(row) * width;
    for (int x = 0; x < width; ++x) {
      out[x] = d[x] != noDisparity && nearest[place(x)] > d[x] + step ? 255 : 0;
    }
  }
}

void findBeside(const Plane& disparity, const Plane& evidence, int width, int from, int to, const BesideRule& rule,
                std::uint8_t* beside) {
  float columns[maxWidth + 2 * Plane::border];
  float most[maxWidth];
  float* const column = columns + Plane::border;
  const int reach = rule.reach;
  for (int row = from; row < to; ++row) {
    largestDown(evidence, row, reach, width, rule.least, column);
    largestAlong(column, reach, width, most);
    const float* const d = disparity.row(row);
    std::uint8_t* const out = beside + static_cast<std::ptrdiff_t>(row) * width;
    for (int x = 0; x < width; ++x) {
      const bool marked = (d[x] != noDisparity) & (most[x] > rule.factor * d[x] + rule.step);
      out[x] = marked ? 255 : out[x];
    }
  }
}

SpeckFinder::SpeckFinder(int width, int height)
    : m_width(width), m_height(height), m_labels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
  m_parents.reserve(m_labels.size());
  m_sizes.reserve(m_labels.size());
  m_doubtOf.reserve(m_labels.size());
  m_doubts.reserve(m_labels.size() / 4);  // samples are at least two pixels apart in each direction
}

int SpeckFinder::root(int label) {
  while (m_parents[static_cast<std::size_t>(label)] != label) {
    int& parent = m_parents[static_cast<std::size_t>(label)];
    parent = m_parents[static_cast<std::size_t>(parent)];
    label = parent;
  }
  return label;
}

void SpeckFinder::find(const Plane& disparity, float step, int least, std::uint8_t* specks) {
  m_parents.clear();
  m_sizes.clear();
  for (int row = 0; row < m_height; ++row) {
    const float* const d = disparity.row(row);
    const float* const above = disparity.row(row - 1);
    std::int32_t* const labels = m_labels.data() + static_cast<std::ptrdiff_t>(row) * m_width;
    for (int x = 0; x < m_width; ++x) {
      if (d[x] == noDisparity) {
        labels[x] = -1;
        continue;
      }
      int label = -1;
      if (x > 0 && labels[x - 1] >= 0 && std::abs(d[x] - d[x - 1]) <= step) {
        label = labels[x - 1];
      }
      if (row > 0 && labels[x - m_width] >= 0 && std::abs(d[x] - above[x]) <= step) {
        const int other = root(labels[x - m_width]);
        if (label < 0) {
          label = other;
        } else {
          const int own = root(label);
          if (own != other) {
            m_parents[static_cast<std::size_t>(std::max(own, other))] = std::min(own, other);
            m_sizes[static_cast<std::size_t>(std::min(own, other))] +=
                m_sizes[static_cast<std::size_t>(std::max(own, other))];
          }
          label = std::min(own, other);
        }
      }
      if (label < 0) {
        label = static_cast<int>(m_parents.size());
        m_parents.push_back(label);
        m_sizes.push_back(0);
      }
      label = root(label);
      labels[x] = label;
      ++m_sizes[static_cast<std::size_t>(label)];
    }
  }
  for (std::size_t label = 0; label < m_parents.size(); ++label) {
    m_parents[label] = root(static_cast<int>(label));
    m_sizes[label] = m_sizes[static_cast<std::size_t>(m_parents[label])];
  }
  const std::size_t total = m_labels.size();
  for (std::size_t k = 0; k < total; ++k) {
    specks[k] = m_labels[k] >= 0 && m_sizes[static_cast<std::size_t>(m_labels[k])] < least ? 255 : 0;
  }
}

SpeckFinder::Doubt* SpeckFinder::doubtOf(std::ptrdiff_t k) {
  const int label = m_labels[static_cast<std::size_t>(k)];
  const int number = label < 0 ? -1 : m_doubtOf[static_cast<std::size_t>(m_parents[static_cast<std::size_t>(label)])];
  return number < 0 ? nullptr : &m_doubts[static_cast<std::size_t>(number)];
}

void SpeckFinder::markRepeats(const RepeatFinder& repeats, std::uint8_t* marks) {
  std::fill_n(marks, m_labels.size(), static_cast<std::uint8_t>(0));
  m_doubtOf.assign(m_parents.size(), -1);
  m_doubts.clear();
  const int step = repeats.step();
  const int columns = repeats.lastMark() + 1;
  bool any = false;
  for (int row = 0; row < repeats.rows(); ++row) {
    const std::uint8_t* const cells = repeats.row(row * step);
    const std::ptrdiff_t line = (static_cast<std::ptrdiff_t>(row) * step + step / 2) * m_width + step / 2;
    for (int column = 0; column < columns; ++column) {
      const std::ptrdiff_t k = line + static_cast<std::ptrdiff_t>(column) * step;
      const int label = m_labels[static_cast<std::size_t>(k)];
      if (label < 0) {
        continue;
      }
      std::int32_t& number = m_doubtOf[static_cast<std::size_t>(m_parents[static_cast<std::size_t>(label)])];
      if (number < 0) {
        number = static_cast<std::int32_t>(m_doubts.size());
        m_doubts.emplace_back();
      }
      Doubt& doubt = m_doubts[static_cast<std::size_t>(number)];
      ++doubt.samples;
      if (cells[column] == 0) {
        continue;
      }
      any = true;
      ++doubt.marked;
      const int period = repeats.periodAt(row, column);
      doubt.periods += period;
      if (doubt.lastRow == row + 1) {
        continue;
      }
      doubt.lastRow = row + 1;
      ++doubt.rows;
      for (int other = std::max(column - period / step, 0); other < std::min(column + 3, columns); ++other) {
        const bool isSame = doubtOf(line + static_cast<std::ptrdiff_t>(other) * step) == &doubt;
        doubt.ends += isSame && repeats.endsAt(row, other, period) ? 1 : 0;
      }
    }
  }
  if (!any) {
    return;
  }
  for (Doubt& doubt : m_doubts) {
    // At the surface's left edge is a strip, one period wide, where something nearer by a period would reach beyond the
    // surface in the right eye's view: nothing but the matched disparity fits there.
    const std::int64_t strips = std::int64_t{doubt.rows} * doubt.periods;  // times samples and their step
    doubt.isSettled = std::int64_t{doubt.ends} * doubt.marked * step * 100 > leastEnd * strips;
    doubt.isWhole = !doubt.isSettled && std::int64_t{doubt.marked} * 100 > std::int64_t{mostMarked} * doubt.samples;
  }
  for (int row = 0; row < m_height; ++row) {
    const std::uint8_t* const cells = repeats.row(row);
    const std::ptrdiff_t line = static_cast<std::ptrdiff_t>(row) * m_width;
    for (int cell = 0; cell < columns; ++cell) {
      const int end = cell + 1 < columns ? (cell + 1) * step : m_width;
      for (int x = cell * step; x < end; ++x) {
        const Doubt* const doubt = doubtOf(line + x);
        if (doubt != nullptr) {
          marks[line + x] = doubt->isWhole || (cells[cell] != 0 && !doubt->isSettled) ? 255 : 0;
        } else {
          marks[line + x] = cells[cell];
        }
      }
    }
  }
}

}  // namespace stereo::depth
