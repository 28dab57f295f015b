// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace stereo::baseline {

/// Row `row` of a CV_64FC1 matrix of three columns times the column (a, b, c). Takes a header copy with every call and
/// lives in a translation unit of its own, so that callers pay for the copy and for the call.
double MatRowMul(cv::Mat m, double a, double b, double c, int row);

}  // namespace stereo::baseline
