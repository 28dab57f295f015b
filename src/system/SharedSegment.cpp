// SPDX-License-Identifier: Apache-2.0
// The shared-memory segment that offers images to another process.
#include "src/system/SharedSegment.hpp"

#include <atomic>
#include <cstring>

#include <sys/shm.h>

#include "model/CameraFacts.hpp"

namespace stereo::sys {

namespace {

constexpr int permissions = 0666;
constexpr std::int32_t statusFree = 0;
constexpr std::int32_t statusWritten = 2;

// The word is shared with another process. Atomic access keeps the compiler from moving or splitting it; acquiring it
// on a read keeps the next copy behind the consumer's store.
std::atomic_ref<std::int32_t> statusOf(void* segment) {
  return std::atomic_ref<std::int32_t>(*static_cast<std::int32_t*>(segment));
}

}  // namespace

bool SharedSegment::create(key_t key, std::size_t size) {
  m_id = shmget(key, size, IPC_CREAT | permissions);
  m_size = m_id == -1 ? 0 : size;
  return m_id != -1;
}

bool SharedSegment::attach() {
  void* const address = shmat(m_id, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) {  // NOLINT(performance-no-int-to-ptr): the system's own failure value
    return false;
  }
  m_address = address;
  statusOf(m_address).store(statusFree, std::memory_order_seq_cst);
  return true;
}

bool SharedSegment::offer(const cv::Mat& image, std::size_t bytes) {
  if (m_address == nullptr || m_size < model::segmentHeaderBytes || bytes > m_size - model::segmentHeaderBytes) {
    return false;
  }
  if (image.type() != CV_8UC3 || !image.isContinuous() || image.total() * image.elemSize() < bytes) {
    return false;
  }
  if (statusOf(m_address).load(std::memory_order_acquire) != statusFree) {
    return false;
  }
  statusOf(m_address).store(statusWritten, std::memory_order_seq_cst);
  // Some processors make later plain stores visible first; the mark must be seen before any of the pixels.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  std::memcpy(static_cast<std::uint8_t*>(m_address) + model::segmentHeaderBytes, image.data, bytes);
  return true;
}

bool SharedSegment::detach() {
  const bool detached = shmdt(m_address) != -1;
  m_address = nullptr;
  return detached;
}

bool SharedSegment::remove() { return shmctl(m_id, IPC_RMID, nullptr) != -1; }

}  // namespace stereo::sys
