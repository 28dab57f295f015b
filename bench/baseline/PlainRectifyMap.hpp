// SPDX-License-Identifier: Apache-2.0
// Lookup maps, plain form.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::baseline {

/// Inverse and product of 3 x 3 matrices, CV_64FC1, with the sums of OpenCV compiled without fused multiply-add (on
/// 64-bit Arm it is compiled with it). The inverse of a singular matrix is zero.
cv::Mat inverse(const cv::Mat& m);
cv::Mat product(const cv::Mat& a, const cv::Mat& b);

/// The public `initRectifyMap`, pixel by pixel in double precision. Does not check the shapes: K, R, P 3x3 and D 1x4,
/// all CV_64FC1. The maps are CV_32FC1 of `size`.
bool initRectifyMap(cv::Mat K, cv::Mat D, cv::Mat R, cv::Mat P, double xi, double xi2, cv::Size size, int mode,
                    cv::Mat& map1, cv::Mat& map2);

}  // namespace stereo::baseline
