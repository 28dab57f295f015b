// SPDX-License-Identifier: Apache-2.0
// Limits how long a thread's reads of a camera wait.
#include "ReadLimit.hpp"

#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

thread_local ReadLimit* innermost = nullptr;

// A time that exceeds the clock's range ends with that range.
Clock::time_point after(Clock::duration time) {
  const Clock::time_point now = Clock::now();
  return time > Clock::time_point::max() - now ? Clock::time_point::max() : now + time;
}

}  // namespace

ReadLimit::ReadLimit(std::function<bool()> mayGoOn)
    : m_mayGoOn(std::move(mayGoOn)), m_outer(std::exchange(innermost, this)) {}

ReadLimit::ReadLimit(Clock::duration time) : ReadLimit([end = after(time)] { return Clock::now() < end; }) {}

ReadLimit::~ReadLimit() { innermost = m_outer; }

ReadLimit* ReadLimit::current() { return innermost; }

bool ReadLimit::mayGoOn() {
  const bool may = m_mayGoOn();
  m_wasReached = m_wasReached || !may;
  return may;
}
