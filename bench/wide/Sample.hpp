// SPDX-License-Identifier: Apache-2.0
// Frames with their truth, rendered once and kept.
#pragma once

#include <filesystem>

#include <opencv2/core.hpp>

#include "bench/wide/Cases.hpp"
#include "bench/wide/View.hpp"
#include "sim/GroundTruth.hpp"

namespace stereo::wide {

/// A pair of eyes and what is true of each pixel of the view.
struct Sample {
  cv::Mat left, right;    ///< CV_8UC3, 928 x 800 pixels each, as the camera delivers them
  sim::RangeTruth truth;  ///< of the view's rays
  cv::Mat plain;          ///< CV_8UC1: 255 on surfaces without texture
  cv::Mat inside;         ///< CV_8UC1: 255 where everything within two pixels belongs to the same thing
};

/// Renders samples, or reads those that an earlier call rendered.
class SampleCache {
public:
  /// `folder`: where rendered frames and truth stay; created if missing. Empty: nothing stays.
  explicit SampleCache(std::filesystem::path folder) : m_folder(std::move(folder)) {}

  Sample sample(const SceneOfRig& scene, const Case& conditions, const View& view) const;

private:
  std::filesystem::path m_folder;
};

/// `Sample::inside` of the surfaces that a truth names.
cv::Mat insideOf(const cv::Mat& surface);

}  // namespace stereo::wide
