// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include <opencv2/core.hpp>

namespace stereo::soak {

/// What the soaking process and the one that takes images from the segment have in common: counters, which outlive the
/// latter's being killed, and the left eyes as they have to come. Memory without a name, handed on as a descriptor.
class SharedCounters {
public:
  struct Counters {
    std::atomic<std::uint32_t> newest{0};         ///< number of the newest frame of any device
    std::atomic<std::uint32_t> last{0};           ///< number of the image taken last
    std::atomic<std::uint64_t> taken{0};          ///< images taken, each checked
    std::atomic<std::uint64_t> again{0};          ///< images found that a killed process had taken but not given free
    std::atomic<std::uint64_t> attached{0};       ///< segments mapped
    std::atomic<std::int64_t> patience{120'000};  ///< milliseconds that a marked image may take to be whole
    std::array<char, 256> failure{};              ///< the taking process's last words
  };
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

  /// Makes the memory; for this many pictures of either frame size. Throws std::runtime_error.
  explicit SharedCounters(int pictures);
  /// Maps what another process made. Throws std::runtime_error.
  static SharedCounters open(int descriptor);
  ~SharedCounters();
  SharedCounters(SharedCounters&& other) noexcept;
  SharedCounters& operator=(SharedCounters&&) = delete;

  int descriptor() const { return m_descriptor; }
  Counters& counters() const { return *static_cast<Counters*>(m_memory); }
  int pictures() const { return m_pictures; }
  /// The left eye (CV_8UC3) that shows this picture in frames of this size; a header of the common pixels.
  cv::Mat leftEye(bool fullSize, int picture) const;
  /// Size of one eye, pixels.
  static cv::Size eyeSize(bool fullSize) { return fullSize ? cv::Size(928, 800) : cv::Size(464, 400); }

private:
  SharedCounters(int descriptor, int pictures);

  int m_descriptor = -1;
  int m_pictures = 0;
  std::size_t m_bytes = 0;
  void* m_memory = nullptr;
};

}  // namespace stereo::soak
