// SPDX-License-Identifier: Apache-2.0
// Counts a camera's frames, and passes them to recorders that come and go.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "sources/FrameTap.hpp"

namespace stereo::app {

/// The tap of a camera that runs for long: counts its frames, and passes them to recorders that are attached and
/// detached while it runs.
class LiveTap final : public sources::FrameTap {
public:
  void read(const cv::Mat& frame) override {
    m_isNew = true;
    const std::lock_guard lock(m_mutex);
    for (sources::FrameTap* const each : m_attached) {
      each->read(frame);
    }
  }

  void published(std::chrono::microseconds timestamp) override {
    if (timestamp.count() != m_newest && std::exchange(m_isNew, false)) {
      noteGap(timestamp.count());
      ++m_frames;
    }
    m_newest = timestamp.count();
    const std::lock_guard lock(m_mutex);
    for (sources::FrameTap* const each : m_attached) {
      each->published(timestamp);
    }
  }

  // Any thread.

  /// `tap` outlives its attachment.
  void attach(sources::FrameTap& tap) {
    const std::lock_guard lock(m_mutex);
    m_attached.push_back(&tap);
  }
  /// Returns once no call is under way.
  void detach(sources::FrameTap& tap) {
    const std::lock_guard lock(m_mutex);
    std::erase(m_attached, &tap);
  }

  /// Frames published since construction, over all cameras that it was the tap of.
  std::uint64_t frames() const { return m_frames; }
  /// Timestamp of the newest of them, system microseconds; 0 before the first.
  std::int64_t newest() const { return m_newestPublished; }
  /// Frames that must have come in between, from the timestamps: an interval of n and a half periods or more has lost
  /// n. The period is that of the rate last given.
  std::uint64_t gaps() const { return m_gaps; }
  /// Frames a second that the device should deliver; 0: unknown, so that nothing is counted. Also begins anew: the time
  /// without a camera is no gap.
  void expect(double rate) {
    m_period = rate > 0 ? static_cast<std::int64_t>(1e6 / rate) : 0;
    m_newestPublished = 0;
  }

private:
  void noteGap(std::int64_t timestamp) {
    const std::int64_t period = m_period;
    const std::int64_t before = m_newestPublished.exchange(timestamp);
    if (period > 0 && before > 0 && timestamp - before > period + period / 2) {
      m_gaps += static_cast<std::uint64_t>((timestamp - before + period / 2) / period - 1);
    }
  }

  // The reading thread's.
  bool m_isNew = false;
  std::int64_t m_newest = 0;

  std::atomic<std::uint64_t> m_frames{0};
  std::atomic<std::uint64_t> m_gaps{0};
  std::atomic<std::int64_t> m_newestPublished{0};
  std::atomic<std::int64_t> m_period{0};
  std::mutex m_mutex;
  std::vector<sources::FrameTap*> m_attached;
};

}  // namespace stereo::app
