// SPDX-License-Identifier: Apache-2.0
// How settings and calibration files are opened, read and written.
#include "src/StereoCameraCommon/Storage.hpp"

#include <cstdlib>
#include <new>

#include <opencv2/core/utils/logger.hpp>

#include "DocumentGuard.hpp"
#include "model/FileKeys.hpp"
#include "src/system/DocumentFile.hpp"

namespace stereo {

namespace {

constexpr std::size_t maxDimensions = 32;  // of an OpenCV matrix

}  // namespace

std::unique_ptr<cv::FileStorage> openForReading(const std::string& path, EmptyFile empty) {
  std::unique_ptr<cv::FileStorage> storage(new (std::nothrow) cv::FileStorage());
  if (storage == nullptr) {
    return nullptr;
  }
  // The storage layer does not accept a text of several lines as a file name.
  if (path.empty() || path.rfind('?') == 0 || path.find('\n') != std::string::npos) {
    CV_Error(cv::Error::StsNullPtr, "NULL or empty filename");
  }
  using State = sys::DocumentFile::State;
  sys::DocumentFile file = sys::readDocumentFile(path);
  if (file.state == State::missing) {
    CV_LOG_ERROR(nullptr, "Can't open file: '" << path << "' in read mode");
    return storage;
  }
  if (file.state == State::whole && file.text.empty() && empty == EmptyFile::hasNoKeys) {
    return storage;
  }
  if (file.state == State::damaged || !core::safeToParse(file.text)) {
    CV_Error(cv::Error::StsParseError, "the document is malformed");
  }
  // The parser gets the same bytes that were checked. In memory, the text ends for it before the last line end; in a
  // file, after it.
  if (file.text.ends_with('\n')) {
    file.text += '\n';
  }
  storage->open(file.text, cv::FileStorage::READ | cv::FileStorage::MEMORY, "");
  return storage;
}

cv::Mat readMatrix(const cv::FileStorage& storage, const char* key) {
  const cv::FileNode node = storage[key];
  // The storage layer reads the sizes of a matrix into an array of fixed length without checking their number.
  if (node.isMap() && node["sizes"].size() > maxDimensions) {
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

void writeReserved(cv::FileStorage& storage) {
  storage << model::keys::reserved << cv::Mat(cv::Mat::eye(3, 3, CV_64F));
}

void syncDisks() {
  // NOLINTNEXTLINE(cert-env33-c): the text is a constant, nothing of a file becomes part of it
  if (std::system("sync") != 0) {
    // Without a shell or "sync", nothing that was written is lost.
  }
}

}  // namespace stereo
