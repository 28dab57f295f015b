// SPDX-License-Identifier: Apache-2.0
// Counts the allocations of the process.
#pragma once

#include <cstdint>

namespace stereo::compare {

/// Whether this build counts allocations; sanitizer builds do not.
bool countsAllocations();

/// Allocations of the whole process since its start, on all threads; 0 if none are counted.
std::uint64_t allocations();

}  // namespace stereo::compare
