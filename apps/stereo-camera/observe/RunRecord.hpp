// SPDX-License-Identifier: Apache-2.0
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

/// One frame that the device gave.
struct DeviceFrame {
  std::int64_t called = 0;     ///< when the read that got it was called, system microseconds
  std::int64_t returned = 0;   ///< when that read came back
  std::int64_t published = 0;  ///< timestamp that the camera gave it; 0: read but never published
  std::int64_t cpu = 0;        ///< `threadMicroseconds` of the reading thread when the read was called
};

/// One result that came to be.
struct Product {
  std::int64_t timestamp = 0;  ///< of the raw frame it goes back to or, where the kind says so, that it came with
  std::int64_t inHand = 0;     ///< when it was there, system microseconds
  std::int64_t cpu = 0;        ///< `threadMicroseconds` of the thread that has it, then
};

/// A list that stops growing at its capacity, and counts on. Its memory is set aside at construction, so that adding
/// never waits for an allocation. One thread adds; others read once that thread has ended.
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

/// What a camera under measurement notes of a run: `MeasuredCapture` the frames, `MeasuredCamera` the disparities.
/// Outlives the camera. Written by the camera's workers, each its own list, and read once they have ended; any thread
/// may ask for the number of frames and of missed ones while the camera lives.
struct RunRecord {
  /// Entries kept of each kind: two hours and more at 30 frames a second.
  static constexpr std::size_t defaultCapacity = 1U << 18U;

  explicit RunRecord(std::size_t capacity = defaultCapacity) : frames(capacity), disparities(capacity) {}

  /// The camera published a raw frame with this timestamp, if it is another than the latest: notes it with the device's
  /// newest frame. The thread that reads the device, or any once that has ended.
  void published(std::int64_t timestamp);

  BoundedList<DeviceFrame> frames;
  /// Timestamp of the raw pair; in hand when the disparity worker, having published, came for the next pair.
  BoundedList<Product> disparities;
  std::atomic<std::uint64_t> framesRead{0};
  /// Frames that were due but that nobody came for, since the device was opened; empty where the device can't tell.
  std::function<std::uint64_t()> framesMissed;
  /// Frames per second that the device says it gives, 0 where it says nothing. Not while a worker reads it.
  std::function<double()> deviceRate;

private:
  std::int64_t m_newest = 0;  // timestamp that was noted last
};

}  // namespace stereo::app
