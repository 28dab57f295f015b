// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>

// How settings and calibration files hold their values: every one is a matrix of doubles.

namespace stereo {

/// What a file of no bytes, unpacked, counts as. The storage layer would call it malformed.
enum class EmptyFile { malformed, hasNoKeys };

/// A reader on the file, compressed or not; one without keys if there is no such file, null if there is no memory for
/// it. Throws cv::Exception for a malformed document, among them those that OpenCV's parsers would not survive.
std::unique_ptr<cv::FileStorage> openForReading(const std::string& path, EmptyFile empty);
/// The matrix under a key, empty if there is none. Throws cv::Exception for anything but a matrix.
cv::Mat readMatrix(const cv::FileStorage& storage, const char* key);

/// 1 x 1.
void writeNumber(cv::FileStorage& storage, const char* key, double value);
/// 1 x 2, width then height.
void writeSize(cv::FileStorage& storage, const char* key, cv::Size size);
/// 3 x 3 identity, which nothing reads.
void writeReserved(cv::FileStorage& storage);
/// Runs the shell command "sync", so that a file survives the board's power being cut. Its result is ignored.
void syncDisks();

}  // namespace stereo
