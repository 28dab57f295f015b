// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace stereo::baseline {

/// The public `initRectifyMap`, pixel by pixel in double precision. Shapes are the caller's to see to: K, R, P 3x3 and
/// D 1x4, all CV_64FC1. The maps come out CV_32FC1 of `size`.
bool initRectifyMap(cv::Mat K, cv::Mat D, cv::Mat R, cv::Mat P, double xi, double xi2, cv::Size size, int mode,
                    cv::Mat& map1, cv::Mat& map2);

}  // namespace stereo::baseline
