// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/Score.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace stereo::wide {

namespace {

constexpr double wrongFrom = 0.1;                           // relative error
constexpr double nearUpTo = 0.3;                            // meters
constexpr double tooFarFactor = 1.25;                       // of the true range
constexpr double ringWidth = 15.0;                          // degrees off the axis
constexpr std::array<double, 3> bandLimits{0.3, 1.0, 3.0};  // meters

double percent(std::size_t part, std::size_t whole) {
  return whole == 0 ? std::numeric_limits<double>::quiet_NaN()
                    : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

double medianOf(std::vector<float> values) {
  if (values.empty()) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

bool isWrong(float truth, float range) { return std::abs(range / truth - 1.0F) > wrongFrom; }

}  // namespace

double figure(const Figures& figures, const std::string& name) {
  for (const Figure& one : figures) {
    if (one.name == name) {
      return one.value;
    }
  }
  return std::numeric_limits<double>::quiet_NaN();
}

void Tally::add(float truth, float range) {
  ++m_pixels;
  if (range > 0.0F) {
    m_wrong += isWrong(truth, range) ? 1 : 0;
    m_errors.push_back(range / truth - 1.0F);
  }
}

double Tally::valid() const { return percent(m_errors.size(), m_pixels); }

double Tally::wrong() const { return percent(m_wrong, m_errors.size()); }

double Tally::median() const {
  std::vector<float> absolute = m_errors;
  for (float& error : absolute) {
    error = std::abs(error);
  }
  return 100.0 * medianOf(std::move(absolute));
}

double Tally::bias() const { return 100.0 * medianOf(m_errors); }

double Score::Share::percent() const { return wide::percent(counted, pixels); }

void Score::add(const Sample& sample, const Measured& measured, const View& view) {
  if (measured.range.size() != view.size || measured.range.type() != CV_32FC1) {
    throw std::logic_error("ranges are CV_32FC1 of the view's size");
  }
  m_hasConfidence = !measured.confidence.empty();
  m_hasStates = !measured.state.empty();
  for (int row = 0; row < view.size.height; ++row) {
    for (int col = 0; col < view.size.width; ++col) {
      const double longitude = view.longitude(col);
      if (std::abs(longitude) > m_limits.longitude * CV_PI / 180.0) {
        continue;
      }
      const float truth = sample.truth.range.at<float>(row, col);
      float range = measured.range.at<float>(row, col);
      // NaN and the like count as the worst that can be reported.
      range = std::isfinite(range) && range >= 0.0F ? range : 1e9F;
      const bool isTooFar = range > tooFarFactor * truth;
      const bool isInside = sample.inside.at<unsigned char>(row, col) != 0;
      const bool isSeen = sample.truth.seen.at<unsigned char>(row, col) != 0;
      const bool isPlain = sample.plain.at<unsigned char>(row, col) != 0;
      const bool isNearer = truth < m_limits.nearest;
      const bool isFarther = truth > m_limits.farthest;
      const std::size_t group = isNearer ? 2 : (isFarther ? 3 : (!isSeen ? 4 : (isPlain ? 1 : 0)));
      if (m_hasStates) {
        ++m_states.at(group).at(measured.state.at<unsigned char>(row, col));
      }
      if (isNearer || truth < nearUpTo) {
        (isNearer ? m_tooNear : m_near).add(isTooFar);
        if (isInside) {
          (isNearer ? m_tooNearInside : m_nearInside).add(isTooFar);
        }
      }
      if (isNearer || isFarther) {
        continue;
      }
      if (!isSeen) {
        m_hidden.add(truth, range);
        continue;
      }
      m_all.add(truth, range);
      const double forward = std::cos(longitude) * std::cos(view.latitude(row));
      const auto ring = static_cast<std::size_t>(std::acos(std::clamp(forward, -1.0, 1.0)) / CV_PI * 180.0 / ringWidth);
      m_rings[std::min(ring, ringNames.size() - 1)].add(truth, range);
      const auto band = std::upper_bound(bandLimits.begin(), bandLimits.end(), truth) - bandLimits.begin();
      m_bands[static_cast<std::size_t>(band)].add(truth, range);
      if (isPlain) {
        m_plain.add(truth, range);
      }
      if (m_hasConfidence && range > 0.0F) {
        ++m_confidence[measured.confidence.at<unsigned char>(row, col)][isWrong(truth, range) ? 1 : 0];
      }
    }
  }
}

double Score::wrongInBetterHalf() const {
  std::array<std::size_t, 2> total{};
  for (const auto& level : m_confidence) {
    total[0] += level[0] + level[1];
    total[1] += level[1];
  }
  // From the best down to half of the pixels; of the level at the border, its share.
  double left = 0.5 * static_cast<double>(total[0]);
  double wrong = 0.0;
  for (auto level = m_confidence.rbegin(); level != m_confidence.rend() && left > 0.0; ++level) {
    const auto pixels = static_cast<double>((*level)[0] + (*level)[1]);
    if (pixels > 0.0) {
      wrong += static_cast<double>((*level)[1]) * std::min(1.0, left / pixels);
      left -= pixels;
    }
  }
  return total[1] == 0 ? std::numeric_limits<double>::quiet_NaN() : 100.0 * wrong / static_cast<double>(total[1]);
}

Figures Score::figures() const {
  Figures figures;
  const auto add = [&figures](const std::string& name, double value) { figures.push_back({name, value}); };
  const auto addTally = [&add](const std::string& name, const Tally& tally) {
    add(name + "pixels", static_cast<double>(tally.pixels()));
    add(name + "valid", tally.valid());
    add(name + "wrong", tally.wrong());
    add(name + "median", tally.median());
    add(name + "bias", tally.bias());
  };
  addTally("", m_all);
  for (std::size_t n = 0; n < ringNames.size(); ++n) {
    addTally(std::string("ring ") + ringNames[n] + " ", m_rings[n]);
  }
  for (std::size_t n = 0; n < bandNames.size(); ++n) {
    addTally(std::string("band ") + bandNames[n] + " ", m_bands[n]);
  }
  addTally("plain ", m_plain);
  addTally("hidden ", m_hidden);
  add("near too far", m_near.percent());
  add("near inside too far", m_nearInside.percent());
  add("nearer than nearest too far", m_tooNear.percent());
  add("nearer than nearest inside too far", m_tooNearInside.percent());
  if (m_hasConfidence) {
    add("wrong in better half", wrongInBetterHalf());
  }
  if (m_hasStates) {
    for (std::size_t group = 0; group < groupNames.size(); ++group) {
      std::size_t all = 0;
      for (const std::size_t count : m_states[group]) {
        all += count;
      }
      for (std::size_t state = 0; state < stateNames.size(); ++state) {
        add(std::string(groupNames[group]) + ": " + stateNames[state], percent(m_states[group][state], all));
      }
    }
  }
  return figures;
}

}  // namespace stereo::wide
