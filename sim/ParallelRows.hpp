// SPDX-License-Identifier: Apache-2.0
// Spreads rows over threads.
#pragma once

#include <functional>

namespace stereo::sim {

/// Calls `work(row)` once for each row from 0 to `rows` - 1 on cv::getNumThreads() threads, including the caller's, and
/// returns when all are done. Rows run concurrently and in any order, so `work` writes only to its own row. Rethrows
/// the first exception of `work`; rows not begun by then are skipped.
///
/// Uses plain threads, since race detectors don't understand how OpenCV's pool hands over work.
void forEachRow(int rows, const std::function<void(int)>& work);

}  // namespace stereo::sim
