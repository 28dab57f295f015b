// SPDX-License-Identifier: Apache-2.0
// How settings and calibration files are opened, read and written. Every value in them is a matrix of doubles.
#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>

namespace stereo {

/// How to treat a file that is empty once unpacked. OpenCV's storage layer calls it malformed.
enum class EmptyFile { malformed, hasNoKeys };

/// A reader of the file, compressed or not. If there is no such file, the reader has no keys; if there is no memory, it
/// is null. Throws cv::Exception for a malformed document, including those that would crash OpenCV's parsers.
std::unique_ptr<cv::FileStorage> openForReading(const std::string& path, EmptyFile empty);
/// The matrix stored under a key, empty if there is none. Throws cv::Exception for anything but a matrix.
cv::Mat readMatrix(const cv::FileStorage& storage, const char* key);

/// Writes a 1 x 1 matrix.
void writeNumber(cv::FileStorage& storage, const char* key, double value);
/// Writes a 1 x 2 matrix, width then height.
void writeSize(cv::FileStorage& storage, const char* key, cv::Size size);
/// Writes a 3 x 3 identity matrix, which nothing reads.
void writeReserved(cv::FileStorage& storage);
/// Runs the shell command "sync", so that the file survives a power cut. Its result is ignored.
void syncDisks();

}  // namespace stereo
