// SPDX-License-Identifier: Apache-2.0
// Frame sizes and rates that a video device supports, from its driver.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::app {

/// What the driver of a video device supports at one requested frame size.
struct SupportedFormats {
  std::vector<std::string> formats;                   ///< pixel formats at that size, "YUYV"
  std::vector<cv::Size> otherSizes;                   ///< some of its other sizes
  std::vector<double> rates;                          ///< frames a second at that size, fastest first
  std::vector<std::pair<double, double>> rateRanges;  ///< any rate from the first to the second

  /// Whether the driver reports sizes.
  bool reportsSizes() const { return !formats.empty() || !otherSizes.empty(); }
  bool reportsRates() const { return !rates.empty() || !rateRanges.empty(); }
  /// Whether the rate (frames a second) is supported; true if the driver reports no rates.
  bool hasRate(double rate) const;
};

/// Queries the driver. `device`: an open descriptor of the video device, which others may read meanwhile.
SupportedFormats supportedFormats(int device, cv::Size wanted);
/// The same by number, /dev/video<node>; empty if it cannot be opened.
SupportedFormats supportedFormatsOfNode(int node, cv::Size wanted);

/// "29.97"
std::string numberText(double number);
/// "30, 25 or 5", "any from 1 to 30", "60 or any from 1 to 30"
std::string ratesText(const SupportedFormats& supported);
/// "640x480, 1280x720"
std::string sizesText(const SupportedFormats& supported);

}  // namespace stereo::app
