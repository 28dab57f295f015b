// SPDX-License-Identifier: Apache-2.0
// From an eye's image to the views that are matched.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

#include "src/depth/Geometry.hpp"

namespace stereo::depth {

/// Gray value of the rows [from, to) of an image (CV_8UC3 or CV_8UC1), slightly smoothed (a standard deviation of 0.6
/// pixels in both directions), at `gray`, whose rows are `stride` bytes apart.
void smoothGray(const cv::Mat& image, int from, int to, std::uint8_t* gray, std::ptrdiff_t stride);

/// Bilinear samples of the rows [from, to) of a map: gray value times 16, `map.width` a row.
void sampleGray(const SampleMap& map, const std::uint8_t* gray, std::ptrdiff_t stride, int from, int to,
                std::uint16_t* samples);

/// The same for the colors of an image of the map's type, rounded, into CV_8UC3; black where the eye sees nothing.
void sampleColor(const SampleMap& map, const cv::Mat& image, int from, int to, cv::Mat& view);

/// Sums of two neighboring samples: `width` of them from twice as many.
void halveRow(const std::uint16_t* samples, int width, std::uint16_t* halves);

/// Census of the rows [from, to) of an image of `width` x `height`: for each pixel the 24 others of its 5 x 5
/// neighborhood, a bit each, set if darker. Three planes of `width` a row. Rows and columns outside repeat the edge.
void census(const std::uint16_t* image, int width, int height, int from, int to, bool mirrored,
            std::uint8_t* const (&planes)[3]);

}  // namespace stereo::depth
