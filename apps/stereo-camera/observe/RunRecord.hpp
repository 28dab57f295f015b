// SPDX-License-Identifier: Apache-2.0
// What a measured run records, without allocating.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

namespace stereo::app {

/// Microseconds since the epoch of `std::chrono::system_clock`, the clock of the frames' timestamps.
std::int64_t systemMicroseconds();
/// Processor time that the calling thread has used so far, microseconds.
std::int64_t threadMicroseconds();

/// One frame that the device delivered.
struct DeviceFrame {
  std::int64_t called = 0;     ///< when its read was called, system microseconds
  std::int64_t returned = 0;   ///< when that read returned
  std::int64_t published = 0;  ///< its timestamp from the camera; 0: read but never published
  std::int64_t cpu = 0;        ///< `threadMicroseconds` of the reading thread when the read was called
};

/// One result.
struct Product {
  std::int64_t timestamp = 0;  ///< of the raw frame it was made from or, where the kind says so, that it came with
  std::int64_t inHand = 0;     ///< when it was ready, system microseconds
  std::int64_t cpu = 0;        ///< `threadMicroseconds` of the thread that received it, at that moment
};

/// A list that stops growing at its capacity but keeps counting. Memory is allocated at construction, so adding never
/// allocates. One thread adds; others read once that thread has ended.
template <typename Entry>
class BoundedList {
public:
  explicit BoundedList(std::size_t capacity) : m_capacity(capacity) { m_kept.reserve(capacity); }

  void add(const Entry& entry) {
    if (m_kept.size() < m_capacity) {
      m_kept.push_back(entry);
    }
    ++m_count;
  }

  /// The first entries.
  const std::vector<Entry>& kept() const { return m_kept; }
  std::vector<Entry>& kept() { return m_kept; }
  /// How many were added.
  std::uint64_t count() const { return m_count; }

private:
  const std::size_t m_capacity;
  std::vector<Entry> m_kept;
  std::uint64_t m_count = 0;
};

/// What a measured camera records: `MeasuredCapture` the frames, `MeasuredCamera` the disparities. Outlives the camera.
/// Each of the camera's workers writes its own list; they are read once the workers have ended. Any thread may read the
/// numbers of frames read and missed while the camera exists.
struct RunRecord {
  /// Entries kept of each kind: more than two hours at 30 frames a second.
  static constexpr std::size_t defaultCapacity = 1U << 18U;

  explicit RunRecord(std::size_t capacity = defaultCapacity) : frames(capacity), disparities(capacity) {}

  /// Stores a new publication timestamp with the device's newest frame; a timestamp seen before is ignored. Called by
  /// the thread that reads the device, or by any thread once that has ended.
  void published(std::int64_t timestamp);

  BoundedList<DeviceFrame> frames;
  /// Timestamp of the raw pair; ready when the disparity worker, having published, fetched the next pair.
  BoundedList<Product> disparities;
  std::atomic<std::uint64_t> framesRead{0};
  /// Frames that nobody read in time since the device was opened; null where the device does not count them.
  std::function<std::uint64_t()> framesMissed;
  /// Frames per second that the device reports, 0 if none. Not while a worker reads it.
  std::function<double()> deviceRate;

private:
  std::int64_t m_newest = 0;  // timestamp stored last
};

}  // namespace stereo::app
