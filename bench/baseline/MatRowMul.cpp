// SPDX-License-Identifier: Apache-2.0
// A matrix row times a column, called the slow way.
#include "bench/baseline/MatRowMul.hpp"

namespace stereo::baseline {

double MatRowMul(cv::Mat m, double a, double b, double c, int row) {
  return (m.at<double>(row, 0) * a + m.at<double>(row, 1) * b) + m.at<double>(row, 2) * c;
}

}  // namespace stereo::baseline
