// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <opencv2/core.hpp>

namespace stereo::soak {

// Every frame has a number of its own, drawn into every row of both eyes: 32 pixels, black or white, just inside the
// left rim of the image circle. That far out none of the rectified views looks, so these show the bare picture and can
// be known beforehand, while a raw eye tells of each of its rows which frame it is of.
//
// Eyes are CV_8UC3; the image circle's radius is half their width.

/// Pixels of the number in a row.
constexpr int numberWidth = 32;

/// First column of the number in this row of an eye.
int numberColumn(cv::Size eye, int row);

/// Draws the number into all rows.
void drawNumber(cv::Mat eye, std::uint32_t number);

/// The number that stands in this row.
std::uint32_t numberIn(const cv::Mat& eye, int row);

/// Empty if `eye` is `picture` with this number drawn into it, to the byte; otherwise where it differs first.
std::string differenceOfEye(const cv::Mat& picture, std::uint32_t number, const cv::Mat& eye);

}  // namespace stereo::soak
