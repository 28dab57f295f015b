// SPDX-License-Identifier: Apache-2.0
// How far an engine's ranges are from the truth.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "bench/wide/Engine.hpp"
#include "bench/wide/Sample.hpp"

namespace stereo::wide {

/// Which pixels count.
struct Limits {
  double longitude = 82.0;  ///< degrees to both sides
  double nearest = 0.1;     ///< meters of true range
  double farthest = 10.0;
};

/// A figure and its name, such as "ring 15-30 median". In percent unless the name says otherwise; NaN where there is no
/// pixel to count.
struct Figure {
  std::string name;
  double value = 0.0;
};
using Figures = std::vector<Figure>;

/// The figure of this name; NaN if there is none.
double figure(const Figures& figures, const std::string& name);

/// Pixels of one kind, and the relative errors of those that were measured.
class Tally {
public:
  /// `range` 0: not measured.
  void add(float truth, float range);

  std::size_t pixels() const { return m_pixels; }
  double valid() const;   ///< percent of the pixels that were measured
  double wrong() const;   ///< percent of these that are more than 10 % off
  double median() const;  ///< of the absolute relative errors, percent
  double bias() const;    ///< median of the relative errors, percent; above 0: too far

private:
  std::size_t m_pixels = 0;
  std::size_t m_wrong = 0;
  std::vector<float> m_errors;
};

/// Gathers samples of one engine in one case.
///
/// Pixels count if both eyes see them and their longitude and true range are within the limits. Beyond these, things
/// nearer than 0.3 m count for what is reported as more than 1.25 times too far wherever the left eye sees them.
class Score {
public:
  explicit Score(const Limits& limits) : m_limits(limits) {}

  /// `measured` is of the view's size.
  void add(const Sample& sample, const Measured& measured, const View& view);

  /// "pixels" (a number), "valid", "wrong", "median", "bias", then those of the rings and bands, near things, hidden
  /// pixels, confidence and states.
  Figures figures() const;

  static constexpr std::array<const char*, 6> ringNames{"0-15", "15-30", "30-45", "45-60", "60-75", "75-90"};
  static constexpr std::array<const char*, 4> bandNames{"0.1-0.3", "0.3-1", "1-3", "3-10"};
  static constexpr std::array<const char*, 6> stateNames{"measured",    "unseen",       "too near",
                                                         "textureless", "inconsistent", "too far"};
  /// Pixels whose states are of interest.
  static constexpr std::array<const char*, 5> groupNames{"textured", "plain", "nearer than nearest",
                                                         "farther than farthest", "hidden"};

private:
  // Pixels, and those of them that are reported as too far.
  struct Share {
    std::size_t pixels = 0;
    std::size_t counted = 0;
    void add(bool isCounted) {
      ++pixels;
      counted += isCounted ? 1 : 0;
    }
    double percent() const;
  };

  double wrongInBetterHalf() const;

  Limits m_limits;
  Tally m_all;
  Tally m_hidden;
  Tally m_plain;
  std::array<Tally, ringNames.size()> m_rings;
  std::array<Tally, bandNames.size()> m_bands;
  Share m_near;
  Share m_nearInside;
  Share m_tooNear;
  Share m_tooNearInside;
  bool m_hasConfidence = false;
  bool m_hasStates = false;
  std::array<std::array<std::size_t, 2>, 256> m_confidence{};  // [confidence][wrong]
  std::array<std::array<std::size_t, stateNames.size()>, groupNames.size()> m_states{};
};

}  // namespace stereo::wide
