// SPDX-License-Identifier: Apache-2.0
// Recycled memory for images that come and go with every frame.
#include "src/system/ImageMemory.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <vector>

namespace stereo::sys {

namespace {

// AddressSanitizer detects a use after free only if memory is really freed. ThreadSanitizer does not see how the
// threads that release an image are ordered, because the reference count changes inside OpenCV; its suppressions cover
// OpenCV's own allocator. So nothing is recycled under either of them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool recycles = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool recycles = false;
#else
constexpr bool recycles = true;
#endif
#else
constexpr bool recycles = true;
#endif

// Smallest blocks worth keeping, bytes. OpenCV's own allocator is as fast for smaller ones.
constexpr std::size_t minBytes = 4096;

class RecyclingAllocator final : public cv::MatAllocator {
public:
  RecyclingAllocator() { m_kept.reserve(maxKept); }

  // Only called through cv::Mat, which leaves the steps to the allocator unless it brings its own pixels.
  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step, cv::AccessFlag flags,
                         cv::UMatUsageFlags usage) const override {
    if (data != nullptr || dims != 2) {
      return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
    }
    const std::size_t elementBytes = CV_ELEM_SIZE(type);
    const std::size_t rowBytes = elementBytes * static_cast<std::size_t>(sizes[1]);
    if (step != nullptr) {
      step[1] = elementBytes;
      step[0] = rowBytes;
    }
    const std::size_t bytes = rowBytes * static_cast<std::size_t>(sizes[0]);
    cv::UMatData* block = takeKept(bytes);
    if (block == nullptr) {
      block = new cv::UMatData(this);
      try {
        block->data = block->origdata = static_cast<unsigned char*>(cv::fastMalloc(bytes));
      } catch (...) {
        delete block;
        throw;
      }
      block->size = bytes;
    }
    return block;
  }

  bool allocate(cv::UMatData* block, cv::AccessFlag, cv::UMatUsageFlags) const override { return block != nullptr; }

  // Called when the last header is gone.
  void deallocate(cv::UMatData* block) const override {
    if (block == nullptr) {
      return;
    }
    if (block->size >= minBytes) {
      const std::unique_lock lock(m_mutex, std::try_to_lock);
      if (lock && m_users > 0) {
        block->flags = static_cast<cv::UMatData::MemoryFlag>(0);
        cv::UMatData* oldest = nullptr;
        if (m_kept.size() == maxKept) {
          // Most likely of a size that is no longer needed.
          oldest = m_kept.front();
          m_kept.erase(m_kept.begin());
        }
        m_kept.push_back(block);
        block = oldest;
      }
    }
    if (block != nullptr) {
      destroy(block);
    }
  }

  void join() {
    const std::lock_guard lock(m_mutex);
    ++m_users;
  }

  void leave() {
    std::vector<cv::UMatData*> kept;
    kept.reserve(maxKept);
    {
      const std::lock_guard lock(m_mutex);
      if (--m_users == 0) {
        m_kept.swap(kept);
      }
    }
    std::for_each(kept.begin(), kept.end(), destroy);
  }

private:
  // Takes the block that was released last: it is the most likely to be in the caches.
  cv::UMatData* takeKept(std::size_t bytes) const {
    const std::unique_lock lock(m_mutex, std::try_to_lock);
    if (!lock) {
      return nullptr;
    }
    const auto found =
        std::find_if(m_kept.rbegin(), m_kept.rend(), [&](const cv::UMatData* block) { return block->size == bytes; });
    if (found == m_kept.rend()) {
      return nullptr;
    }
    cv::UMatData* const block = *found;
    m_kept.erase(std::next(found).base());
    return block;
  }

  static void destroy(cv::UMatData* block) {
    cv::fastFree(block->origdata);
    block->origdata = nullptr;
    delete block;
  }

  // Guards the rest; nothing is called while it is held. Images never wait for it, but do without a kept block instead:
  // in a child process, it may be held by a thread that exists only in the parent.
  mutable std::mutex m_mutex;
  mutable std::vector<cv::UMatData*> m_kept;
  int m_users = 0;
};

// Never destroyed: an image may outlive everything, even static objects.
RecyclingAllocator& allocator() {
  static auto* const instance = new RecyclingAllocator;
  return *instance;
}

}  // namespace

cv::Mat recycledImage() {
  cv::Mat image;
  if constexpr (recycles) {
    image.allocator = &allocator();
  }
  return image;
}

cv::Mat recycledCopy(const cv::Mat& image) {
  cv::Mat copy = recycledImage();
  image.copyTo(copy);
  return copy;
}

ImageMemoryUser::ImageMemoryUser() { allocator().join(); }

ImageMemoryUser::~ImageMemoryUser() { allocator().leave(); }

}  // namespace stereo::sys
