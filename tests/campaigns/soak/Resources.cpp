// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/Resources.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <tuple>

#include <malloc.h>
#include <unistd.h>

namespace stereo::soak {

namespace {

using Field = long Resources::*;

long segmentsOfThisProcess() {
  std::ifstream table("/proc/sysvipc/shm");
  std::string line;
  std::getline(table, line);  // names of the columns
  long count = 0;
  while (std::getline(table, line)) {
    std::istringstream columns(line);
    std::string skipped;
    long creator = 0;
    columns >> skipped >> skipped >> skipped >> skipped >> creator;  // key, id, permissions, size, creator
    count += creator == getpid() ? 1 : 0;
  }
  return count;
}

// Of the samples from one index to before another.
std::vector<long> part(const std::vector<Resources>& samples, Field field, std::size_t begin, std::size_t end) {
  std::vector<long> values;
  for (std::size_t i = begin; i < end; ++i) {
    values.push_back(samples[i].*field);
  }
  std::sort(values.begin(), values.end());
  return values;
}

// Before and after the run's middle.
struct Pair {
  long before;
  long after;
};

// Of the memory in the second and the last quarter. At least four samples.
Pair medians(const std::vector<Resources>& samples, Field field) {
  const std::size_t count = samples.size();
  const std::vector<long> before = part(samples, field, count / 4, count / 2);
  const std::vector<long> after = part(samples, field, count - count / 4, count);
  return {before[before.size() / 2], after[after.size() / 2]};
}

// In either half. At least two samples.
Pair leastOf(const std::vector<Resources>& samples, Field field) {
  const std::size_t half = samples.size() / 2;
  return {part(samples, field, 0, half).front(), part(samples, field, half, samples.size()).front()};
}

std::size_t leastForMemory(const Limits& limits) { return std::max<std::size_t>(limits.memorySamples, 4); }
std::size_t leastForCounts(const Limits& limits) { return std::max<std::size_t>(limits.countSamples, 2); }

Rise risen(const char* what, const Pair& pair) {
  return {what, "rose from " + std::to_string(pair.before) + " to " + std::to_string(pair.after)};
}

}  // namespace

Resources resourcesInUse() {
  Resources resources;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    if (name == "VmRSS:") {
      words >> resources.residentKilobytes;
    } else if (name == "Threads:") {
      words >> resources.threads;
    }
  }
  // The list's own descriptor is in the list.
  for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
    resources.descriptors += each.path().empty() ? 0 : 1;
  }
  --resources.descriptors;
  resources.segments = segmentsOfThisProcess();
  const struct mallinfo2 heap = mallinfo2();
  resources.heapKilobytes = static_cast<long>((heap.uordblks + heap.hblkhd) / 1024);
  return resources;
}

std::vector<Rise> assess(const std::vector<Resources>& all, const Limits& limits) {
  std::vector<Rise> rises;
  const std::size_t warmUp = std::min(all.size(), limits.warmUp);
  const std::vector<Resources> samples(all.begin() + static_cast<std::ptrdiff_t>(warmUp), all.end());
  const std::size_t count = samples.size();
  if (limits.judgeMemory && count >= leastForMemory(limits)) {
    for (const auto& [name, field, limit] :
         {std::tuple<const char*, Field, long>("resident kilobytes", &Resources::residentKilobytes,
                                               limits.memoryKilobytes),
          std::tuple<const char*, Field, long>("allocated kilobytes", &Resources::heapKilobytes,
                                               limits.heapKilobytes)}) {
      const Pair memory = medians(samples, field);
      if (memory.after - memory.before > limit) {
        rises.push_back(risen(name, memory));
      }
    }
  }
  if (count >= leastForCounts(limits)) {
    for (const auto& [name, field] : {std::pair<const char*, Field>("threads", &Resources::threads),
                                      std::pair<const char*, Field>("descriptors", &Resources::descriptors)}) {
      const Pair least = leastOf(samples, field);
      if (least.after > least.before) {
        rises.push_back(risen(name, least));
      }
    }
  }
  if (!all.empty() && all.back().segments != 0) {
    rises.push_back({"segments", std::to_string(all.back().segments) + " left behind"});
  }
  return rises;
}

std::string unjudged(std::size_t samples, const Limits& limits) {
  const std::size_t count = samples - std::min(samples, limits.warmUp);
  const auto tooFew = [&](std::size_t least) {
    return " (" + std::to_string(count) + " samples after the warm-up, not " + std::to_string(least) + ")";
  };
  std::string text;
  if (!limits.judgeMemory) {
    text = "memory (under sanitizers)";
  } else if (count < leastForMemory(limits)) {
    text = "memory" + tooFew(leastForMemory(limits));
  }
  if (count < leastForCounts(limits)) {
    text += (text.empty() ? "" : ", ") + ("threads and descriptors" + tooFew(leastForCounts(limits)));
  }
  return text;
}

long memoryRise(const std::vector<Resources>& samples) {
  const Pair memory = medians(samples, &Resources::residentKilobytes);
  return memory.after - memory.before;
}

std::string describe(const std::vector<Resources>& samples) {
  if (samples.size() < 4) {
    return {};
  }
  const auto text = [](const Pair& pair) { return std::to_string(pair.before) + " -> " + std::to_string(pair.after); };
  return "resident kilobytes " + text(medians(samples, &Resources::residentKilobytes)) + ", allocated " +
         text(medians(samples, &Resources::heapKilobytes)) + ", threads " +
         text(leastOf(samples, &Resources::threads)) + ", descriptors " +
         text(leastOf(samples, &Resources::descriptors));
}

}  // namespace stereo::soak
