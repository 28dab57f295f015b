// SPDX-License-Identifier: Apache-2.0
// Processor, compiler and OpenCV of a run.
#include <fstream>
#include <thread>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>

#include "bench/compare/ResultOutput.hpp"

namespace stereo::compare {

namespace {

std::string processorName() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    const auto colon = line.find(": ");
    if (line.rfind("model name", 0) == 0 && colon != std::string::npos) {
      return line.substr(colon + 2);
    }
  }
  return "unknown processor";
}

}  // namespace

Environment currentEnvironment(const std::string& instructions) {
  Environment environment;
  environment.processor = processorName();
  environment.cores = std::thread::hardware_concurrency();
  environment.threads = cv::getNumThreads();
  environment.instructions = instructions;
#if defined(__clang__)
  environment.compiler = "Clang " __clang_version__;
#else
  environment.compiler = "GCC " __VERSION__;
#endif
  environment.openCv = CV_VERSION;
  return environment;
}

}  // namespace stereo::compare
