// SPDX-License-Identifier: Apache-2.0
// Counts allocations. The C library lets a program replace the allocation functions: these count and call the C
// library's own. Shared libraries and operator new use them, too.
#include "bench/compare/AllocationCount.hpp"

#include <atomic>
#include <cerrno>
#include <cstddef>

#ifdef STEREO_CAMERA_NO_ALLOCATION_COUNT

namespace stereo::compare {

bool countsAllocations() { return false; }

std::uint64_t allocations() { return 0; }

}  // namespace stereo::compare

#else

namespace {

std::atomic<std::uint64_t> counter{0};

void count() { counter.fetch_add(1, std::memory_order_relaxed); }

bool isAlignment(std::size_t alignment) {
  return alignment % sizeof(void*) == 0 && alignment != 0 && (alignment & (alignment - 1)) == 0;
}

}  // namespace

namespace stereo::compare {

bool countsAllocations() { return true; }

std::uint64_t allocations() { return counter.load(std::memory_order_relaxed); }

}  // namespace stereo::compare

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's own names of the functions replaced here
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t number, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

void* malloc(std::size_t size) noexcept {
  count();
  return __libc_malloc(size);
}

void* calloc(std::size_t number, std::size_t size) noexcept {
  count();
  return __libc_calloc(number, size);
}

void* realloc(void* old, std::size_t size) noexcept {
  count();
  return __libc_realloc(old, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
  count();
  return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  count();
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
  count();
  if (!isAlignment(alignment)) {
    return EINVAL;
  }
  void* const result = __libc_memalign(alignment, size);
  if (result == nullptr) {
    return ENOMEM;
  }
  *memory = result;
  return 0;
}

}  // extern "C"

#endif
