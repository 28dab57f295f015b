// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>

// How settings and calibration files hold their values: every one is a matrix of doubles.

namespace stereo {

/// 1 x 1.
void writeNumber(cv::FileStorage& storage, const char* key, double value);
/// 1 x 2, width then height.
void writeSize(cv::FileStorage& storage, const char* key, cv::Size size);
/// 3 x 3 identity, which nothing reads.
void writeReserved(cv::FileStorage& storage);
/// Runs the shell command "sync", so that a file survives the board's power being cut. Its result is ignored.
void syncDisks();

}  // namespace stereo
