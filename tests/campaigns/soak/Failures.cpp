// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/Failures.hpp"

#include <algorithm>
#include <iostream>

namespace stereo::soak {

namespace {

constexpr std::uint64_t told = 5;  // of each kind

}  // namespace

void Failures::add(const std::string& kind, const std::string& text) {
  const std::lock_guard lock(m_mutex);
  auto found = std::find_if(m_kinds.begin(), m_kinds.end(), [&](const Kind& each) { return each.name == kind; });
  if (found == m_kinds.end()) {
    found = m_kinds.insert(found, {kind, text, 0});
  }
  if (++found->count <= told) {
    std::cerr << "soak: " + kind + ": " + text + "\n" << std::flush;
  }
}

std::uint64_t Failures::count() const {
  const std::lock_guard lock(m_mutex);
  std::uint64_t sum = 0;
  for (const Kind& each : m_kinds) {
    sum += each.count;
  }
  return sum;
}

std::vector<std::string> Failures::lines() const {
  const std::lock_guard lock(m_mutex);
  std::vector<std::string> lines;
  for (const Kind& each : m_kinds) {
    lines.push_back(each.name + " (" + std::to_string(each.count) + "): " + each.first);
  }
  return lines;
}

}  // namespace stereo::soak
