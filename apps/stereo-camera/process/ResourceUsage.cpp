// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/process/ResourceUsage.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

namespace stereo::app {

std::string processorName() {
  std::ifstream about("/proc/cpuinfo");
  for (std::string line; std::getline(about, line);) {
    const std::size_t colon = line.find(": ");
    // The key depends on the architecture.
    for (const char* const key : {"model name", "Model", "Hardware"}) {
      if (line.rfind(key, 0) == 0 && colon != std::string::npos) {
        return line.substr(colon + 2);
      }
    }
  }
  std::string board;
  std::getline(std::ifstream("/proc/device-tree/model"), board, '\0');
  return board.empty() ? "unknown" : board;
}

unsigned processorCount() { return std::thread::hardware_concurrency(); }

std::int64_t processMicroseconds() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return std::int64_t{used.tv_sec} * 1'000'000 + used.tv_nsec / 1000;
}

std::optional<std::int64_t> machineMicroseconds() {
  std::ifstream counters("/proc/stat");
  std::string name;
  std::int64_t user = 0;
  std::int64_t nice = 0;
  std::int64_t system = 0;
  std::int64_t idle = 0;
  std::int64_t waiting = 0;
  std::int64_t interrupts = 0;
  std::int64_t softInterrupts = 0;
  if (!(counters >> name >> user >> nice >> system >> idle >> waiting >> interrupts >> softInterrupts) ||
      name != "cpu") {
    return std::nullopt;
  }
  return (user + nice + system + interrupts + softInterrupts) * 1'000'000 / sysconf(_SC_CLK_TCK);
}

double residentMegabytes() {
  std::ifstream counters("/proc/self/statm");
  double pages = 0;
  double resident = 0;
  counters >> pages >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

std::optional<double> machineTemperature() {
  std::optional<double> hottest;
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/thermal", failure)) {
    double thousandths = 0;
    if (std::ifstream(entry.path() / "temp") >> thousandths) {
      hottest = std::max(hottest.value_or(thousandths / 1000), thousandths / 1000);
    }
  }
  return hottest;
}

double peakMegabytes() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  return static_cast<double>(used.ru_maxrss) * 1024 / 1e6;
}

}  // namespace stereo::app
