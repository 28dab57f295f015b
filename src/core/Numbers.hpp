// SPDX-License-Identifier: Apache-2.0
// Numbers from files and matrices, checked.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// `value` truncated toward zero and clamped to the range of int; 0 for NaN.
int toInt(double value);

/// Sum in 32 bits, wrapping: numbers from a file may be as large as an int.
int wrappingSum(int a, int b);

/// Element (0, column) of a matrix read from a file, as double whatever its type.
/// Throws cv::Exception if the matrix has no such element or more than two dimensions.
double numberAt(const cv::Mat& matrix, int column);

/// Element (0, 0) of a CV_64FC1 matrix. Throws cv::Exception for an empty matrix or another type.
double scalarOf(const cv::Mat& matrix);

/// Throws cv::Exception, naming `what`, unless the matrix is CV_64FC1 with at least `rows` x `cols` elements.
void requireDoubles(const cv::Mat& matrix, int rows, int cols, const char* what);

}  // namespace stereo::core
