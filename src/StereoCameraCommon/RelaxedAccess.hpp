// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

#include <opencv2/core.hpp>

// Settings are plain members that the host may set while a worker or reader looks at them, and no lock guards them.
// Going through these two functions makes each access whole (a size is never torn) and free of data races.

namespace stereo {

template <typename T>
T loadRelaxed(const T& member) {
  return std::atomic_ref<T>(const_cast<T&>(member)).load(std::memory_order_relaxed);
}

template <typename T>
void storeRelaxed(T& member, const std::type_identity_t<T>& value) {
  std::atomic_ref<T>(member).store(value, std::memory_order_relaxed);
}

}  // namespace stereo
