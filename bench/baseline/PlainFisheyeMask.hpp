// SPDX-License-Identifier: Apache-2.0
// Masks of the image circle, plain form.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::baseline {

/// The public functions of this name: visit and test every pixel of every row, through row pointers. Both images are
/// CV_8UC3, and the second is at least as large as the first; nothing checks that.
int convertRawFisheyeImage(int radius, cv::Mat& first, cv::Mat& second);
int convertRawFisheyeImage(cv::Mat& first, cv::Mat& second, float dRadiusY, float dRadiusX, float dCenterX,
                           float dCenterY);

}  // namespace stereo::baseline
