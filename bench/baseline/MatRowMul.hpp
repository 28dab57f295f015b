// SPDX-License-Identifier: Apache-2.0
// A matrix row times a column, called the slow way.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::baseline {

/// Row `row` of a CV_64FC1 matrix of three columns times the column (a, b, c). Copies a header with every call and is
/// in its own translation unit, so that callers pay for the copy and for the call.
double MatRowMul(cv::Mat m, double a, double b, double c, int row);

}  // namespace stereo::baseline
