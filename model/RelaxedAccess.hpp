// SPDX-License-Identifier: Apache-2.0
// Access to plain members that no lock guards.
#pragma once

#include <atomic>

#include <opencv2/core.hpp>

// Settings are plain members without a lock; the host may set them while a worker or reader uses them. These two
// functions make each access atomic (a size is never torn), so that there is no data race.

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
