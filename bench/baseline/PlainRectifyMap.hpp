// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace stereo::baseline {

/// Inverse and product of 3 x 3 matrices, CV_64FC1, summed as OpenCV sums them where it is not compiled with fused
/// multiply-add, as it is on 64-bit Arm. A singular matrix gives zeros.
cv::Mat inverse(const cv::Mat& m);
cv::Mat product(const cv::Mat& a, const cv::Mat& b);

/// The public `initRectifyMap`, pixel by pixel in double precision. Shapes are the caller's to see to: K, R, P 3x3 and
/// D 1x4, all CV_64FC1. The maps come out CV_32FC1 of `size`.
bool initRectifyMap(cv::Mat K, cv::Mat D, cv::Mat R, cv::Mat P, double xi, double xi2, cv::Size size, int mode,
                    cv::Mat& map1, cv::Mat& map2);

}  // namespace stereo::baseline
