// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace stereo::compare {

/// Whether this build counts allocations at all; the sanitizer builds do not.
bool countsAllocations();

/// Allocations of the whole process since its start, on all threads; 0 where none are counted.
std::uint64_t allocations();

}  // namespace stereo::compare
