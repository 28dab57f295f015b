// SPDX-License-Identifier: Apache-2.0
#include "ReadLimit.hpp"

#include <utility>

namespace {

thread_local ReadLimit* innermost = nullptr;

}  // namespace

ReadLimit::ReadLimit(std::function<bool()> mayGoOn)
    : m_mayGoOn(std::move(mayGoOn)), m_outer(std::exchange(innermost, this)) {}

ReadLimit::ReadLimit(std::chrono::steady_clock::duration time)
    : ReadLimit([end = std::chrono::steady_clock::now() + time] { return std::chrono::steady_clock::now() < end; }) {}

ReadLimit::~ReadLimit() { innermost = m_outer; }

ReadLimit* ReadLimit::current() { return innermost; }

bool ReadLimit::mayGoOn() {
  const bool may = m_mayGoOn();
  m_wasReached = m_wasReached || !may;
  return may;
}
