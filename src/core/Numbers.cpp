// SPDX-License-Identifier: Apache-2.0
// Numbers from files and matrices, checked.
#include "src/core/Numbers.hpp"

#include <cmath>
#include <limits>

namespace stereo::core {

int toInt(double value) {
  if (std::isnan(value)) {
    return 0;
  }
  constexpr double lowest = std::numeric_limits<int>::min();
  constexpr double highest = std::numeric_limits<int>::max();
  return value <= lowest ? std::numeric_limits<int>::min()
                         : (value >= highest ? std::numeric_limits<int>::max() : static_cast<int>(value));
}

int wrappingSum(int a, int b) { return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b)); }

double numberAt(const cv::Mat& matrix, int column) {
  if (matrix.dims > 2 || matrix.rows < 1 || column < 0 || column >= matrix.cols) {
    CV_Error(cv::Error::StsOutOfRange, "a number in the file has too few elements");
  }
  cv::Mat element;
  matrix(cv::Rect(column, 0, 1, 1)).convertTo(element, CV_64F);
  return *element.ptr<double>();
}

double scalarOf(const cv::Mat& matrix) {
  requireDoubles(matrix, 1, 1, "scalar");
  return matrix.at<double>(0, 0);
}

void requireDoubles(const cv::Mat& matrix, int rows, int cols, const char* what) {
  if (matrix.type() != CV_64FC1 || matrix.dims != 2 || matrix.rows < rows || matrix.cols < cols) {
    CV_Error(cv::Error::StsBadArg,
             cv::format("%s: expected doubles, at least %d x %d, one channel; got %d x %d of type %s", what, rows, cols,
                        matrix.rows, matrix.cols, cv::typeToString(matrix.type()).c_str()));
  }
}

}  // namespace stereo::core
