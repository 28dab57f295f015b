// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/fuzz/Target.hpp"

#include <cstdio>
#include <cstdlib>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>

namespace stereo::fuzz {

void require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "not as promised: %s\n", what);
    std::abort();
  }
}

void requireSame(const char* what, const char* difference) {
  if (*difference != '\0') {
    std::fprintf(stderr, "not the same: %s: %s\n", what, difference);
    std::abort();
  }
}

void prepareOpenCv() {
  cv::setNumThreads(1);
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  cv::redirectError([](int, const char*, const char*, const char*, int, void*) { return 0; });
}

}  // namespace stereo::fuzz
