// SPDX-License-Identifier: Apache-2.0
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

Machine thisMachine(const std::string& instructions) {
  Machine machine;
  machine.processor = processorName();
  machine.cores = std::thread::hardware_concurrency();
  machine.threads = cv::getNumThreads();
  machine.instructions = instructions;
#if defined(__clang__)
  machine.compiler = "Clang " __clang_version__;
#else
  machine.compiler = "GCC " __VERSION__;
#endif
  machine.openCv = CV_VERSION;
  return machine;
}

}  // namespace stereo::compare
