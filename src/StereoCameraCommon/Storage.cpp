// SPDX-License-Identifier: Apache-2.0
#include "StereoCameraCommon/Storage.hpp"

#include <cstdlib>

namespace stereo {

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
  if (std::system("sync") != 0) {
    // A shell or a "sync" that is missing loses nothing that was written.
  }
}

}  // namespace stereo
