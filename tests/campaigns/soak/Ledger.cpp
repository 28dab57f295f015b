// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/Ledger.hpp"

#include <algorithm>

using std::chrono::microseconds;

namespace stereo::soak {

microseconds now() {
  return std::chrono::duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch());
}

void Ledger::asked() {
  const std::lock_guard lock(m_mutex);
  if (m_total > 0) {
    m_deliveries[m_newest % kept].nextAsked = now();
  }
}

void Ledger::delivered(std::uint32_t number, bool warmUp) {
  const std::lock_guard lock(m_mutex);
  m_newest = number;
  ++m_total;
  m_frames += warmUp ? 0 : 1;
  m_deliveries[number % kept] = {number, warmUp, false, now(), microseconds::max()};
}

const Delivery* Ledger::find(microseconds timestamp) const {
  const std::uint64_t known = std::min<std::uint64_t>(m_total, kept);
  for (std::uint32_t back = 0; back < known; ++back) {
    const Delivery& each = m_deliveries[(m_newest - back) % kept];
    if (each.returned <= timestamp) {
      return !each.warmUp && timestamp <= each.nextAsked ? &each : nullptr;
    }
  }
  return nullptr;
}

bool Ledger::matched(microseconds timestamp) {
  const std::lock_guard lock(m_mutex);
  const Delivery* const found = find(timestamp);
  if (found == nullptr) {
    return false;
  }
  m_deliveries[found->number % kept].matched = true;
  return true;
}

std::optional<Delivery> Ledger::published(microseconds timestamp) const {
  const std::lock_guard lock(m_mutex);
  const Delivery* const found = find(timestamp);
  return found == nullptr ? std::nullopt : std::optional(*found);
}

std::vector<std::uint32_t> Ledger::matchedBetween(microseconds first, microseconds last) const {
  const std::lock_guard lock(m_mutex);
  const auto known = static_cast<std::uint32_t>(std::min<std::uint64_t>(m_total, kept));
  const Delivery* const oldest = find(first);
  const Delivery* const newest = find(last);
  const std::uint32_t end = newest == nullptr ? m_newest : newest->number;
  std::vector<std::uint32_t> numbers;
  if (known == 0) {
    return numbers;
  }
  for (std::uint32_t number = oldest == nullptr ? m_newest - known + 1 : oldest->number; number <= end; ++number) {
    if (m_deliveries[number % kept].matched) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

std::uint64_t Ledger::frames() const {
  const std::lock_guard lock(m_mutex);
  return m_frames;
}

}  // namespace stereo::soak
