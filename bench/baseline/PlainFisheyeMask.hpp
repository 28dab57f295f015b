// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace stereo::baseline {

/// The public functions of this name: every pixel of every row is visited and tested, through row pointers. Both images
/// are CV_8UC3 and the second covers the first's size; nothing checks that.
int convertRawFisheyeImage(int radius, cv::Mat& first, cv::Mat& second);
int convertRawFisheyeImage(cv::Mat& first, cv::Mat& second, float dRadiusY, float dRadiusX, float dCenterX,
                           float dCenterY);

}  // namespace stereo::baseline
