// SPDX-License-Identifier: Apache-2.0
// Pictures worse than the renderer's: blurred, noisy, pale, unequal.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::sim {

/// What makes pictures worse. The defaults change nothing.
struct Degradation {
  double blur = 0.0;      ///< standard deviation of a Gaussian blur, pixels of the frame, 0 to 20
  double noise = 0.0;     ///< standard deviation of Gaussian noise, gray levels, 0 to 100
  double gain = 0.0;      ///< by how much the right eye is brighter, percent, -90 to 500
  double contrast = 1.0;  ///< factor of the distance from level 128, 0 to 4

  bool changesNothing() const { return blur == 0.0 && noise == 0.0 && gain == 0.0 && contrast == 1.0; }
};

/// Applies a degradation, in this order: blur of each eye, contrast, gain, noise (each channel has its own).
///
/// The same seed, frame and index give the same picture on every processor. Any number of threads may call `apply`.
class Degrader {
public:
  /// Throws std::invalid_argument for values out of range.
  Degrader(const Degradation& degradation, std::uint32_t seed);

  /// `frame`: both eyes side by side, CV_8UC3. `index`: of the frame, gives each its own noise. Returns a new picture,
  /// or `frame` itself if nothing changes.
  cv::Mat apply(const cv::Mat& frame, std::uint64_t index) const;

private:
  Degradation m_degradation;
  std::uint32_t m_seed;
  std::vector<float> m_noise;  // independent values of unit standard deviation; empty if there is no noise
};

}  // namespace stereo::sim
