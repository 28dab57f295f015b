// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/utility.hpp>

namespace stereo::test {

/// Sets the number of threads that OpenCV and the simulation use, for the life of the object.
class Threads {
public:
  explicit Threads(int count) : m_before(cv::getNumThreads()) { cv::setNumThreads(count); }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;
  ~Threads() { cv::setNumThreads(m_before); }

private:
  int m_before;
};

}  // namespace stereo::test
