// SPDX-License-Identifier: Apache-2.0
// Which compiled form of the kernels runs.
#include "src/core/InstructionSet.hpp"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

namespace stereo::core {

namespace {

bool isAvailable(InstructionSet set) {
  const auto available = availableInstructionSets();
  return std::find(available.begin(), available.end(), set) != available.end();
}

InstructionSet initialSet() {
  const InstructionSet widest = availableInstructionSets().back();
  const char* const wanted = std::getenv("STEREO_CAMERA_INSTRUCTIONS");
  if (wanted == nullptr || *wanted == '\0') {
    return widest;
  }
  for (const InstructionSet set : availableInstructionSets()) {
    if (std::string_view(wanted) == name(set)) {
      return set;
    }
  }
  // The results do not depend on it, so the program goes on, with one message.
  static_cast<void>(std::fprintf(stderr, "STEREO_CAMERA_INSTRUCTIONS: '%s' cannot be had on this processor, using %s\n",
                                 wanted, name(widest)));
  return widest;
}

std::atomic<InstructionSet>& current() {
  static std::atomic<InstructionSet> set{initialSet()};
  return set;
}

}  // namespace

const char* name(InstructionSet set) {
  switch (set) {
    case InstructionSet::avx2:
      return "avx2";
    case InstructionSet::avx512:
      return "avx512";
    default:
      return "plain";
  }
}

std::vector<InstructionSet> availableInstructionSets() {
  std::vector<InstructionSet> sets{InstructionSet::plain};
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2")) {
    sets.push_back(InstructionSet::avx2);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512bw")) {
      sets.push_back(InstructionSet::avx512);
    }
  }
#endif
  return sets;
}

InstructionSet instructionSet() { return current().load(std::memory_order_relaxed); }

void useInstructionSet(InstructionSet set) {
  if (!isAvailable(set)) {
    throw std::invalid_argument(std::string("this processor has no ") + name(set));
  }
  current().store(set, std::memory_order_relaxed);
}

}  // namespace stereo::core
