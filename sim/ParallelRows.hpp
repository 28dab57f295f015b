// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

namespace stereo::sim {

/// Calls `work(row)` once for each row from 0 to `rows` - 1, on as many threads as cv::getNumThreads() says (the
/// calling one among them), and returns when all are done. Rows may run at the same time and in any order: `work`
/// writes into its own row only. The first exception that it throws is thrown on; rows not begun by then are left out.
///
/// Made of plain threads rather than of OpenCV's pool, whose hand-over of work race detectors cannot see.
void forEachRow(int rows, const std::function<void(int)>& work);

}  // namespace stereo::sim
