// SPDX-License-Identifier: Apache-2.0
#include "StereoCameraCommon/Storage.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>

#include "core/DocumentGuard.hpp"

namespace stereo {

namespace {

constexpr std::size_t mostDimensions = 32;  // of an OpenCV matrix

}  // namespace

std::unique_ptr<cv::FileStorage> openForReading(const std::string& path) {
  std::error_code failure;
  if (std::filesystem::is_regular_file(path, failure)) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!core::safeToParse(text)) {
      CV_Error(cv::Error::StsParseError, "the document is nested too deeply, ends inside a tag or lacks a name");
    }
  }
  return std::unique_ptr<cv::FileStorage>(new (std::nothrow) cv::FileStorage(path, cv::FileStorage::READ, ""));
}

cv::Mat readMatrix(const cv::FileStorage& storage, const char* key) {
  const cv::FileNode node = storage[key];
  // The storage layer reads the sizes of a matrix into an array of fixed length without looking at their number.
  if (node.isMap() && node["sizes"].size() > mostDimensions) {
    CV_Error(cv::Error::StsOutOfRange, "a matrix of too many dimensions");
  }
  cv::Mat matrix;
  node >> matrix;
  return matrix;
}

void writeNumber(cv::FileStorage& storage, const char* key, double value) {
  const cv::Mat matrix = (cv::Mat_<double>(1, 1) << value);
  storage << key << matrix;
}

void writeSize(cv::FileStorage& storage, const char* key, cv::Size size) {
  const cv::Mat matrix = (cv::Mat_<double>(1, 2) << size.width, size.height);
  storage << key << matrix;
}

void writeReserved(cv::FileStorage& storage) { storage << "Reserved" << cv::Mat(cv::Mat::eye(3, 3, CV_64F)); }

void syncDisks() {
  // NOLINTNEXTLINE(cert-env33-c): the text is a constant, nothing of a file becomes part of it
  if (std::system("sync") != 0) {
    // A shell or a "sync" that is missing loses nothing that was written.
  }
}

}  // namespace stereo
