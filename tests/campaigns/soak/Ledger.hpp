// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace stereo::soak {

/// By the clock that frames are stamped by.
std::chrono::microseconds now();

/// One frame that the camera's worker got from its device. It is published after that read has returned and before the
/// next one begins, so its timestamp lies in between.
struct Delivery {
  std::uint32_t number = 0;
  bool warmUp = false;   ///< discarded, never published
  bool matched = false;  ///< the disparity worker took it
  std::chrono::microseconds returned{0};
  std::chrono::microseconds nextAsked = std::chrono::microseconds::max();
};

/// Which frame was published when. Keeps the latest frames of one camera's life; any thread.
class Ledger {
public:
  /// The worker asks for its next frame.
  void asked();
  /// The worker has got it. Numbers follow each other without a gap.
  void delivered(std::uint32_t number, bool warmUp);
  /// The disparity worker works on the frame of this timestamp. False if there is none.
  bool matched(std::chrono::microseconds timestamp);

  /// The frame that was published with this timestamp.
  std::optional<Delivery> published(std::chrono::microseconds timestamp) const;
  /// Numbers of the frames from one timestamp to the other, both included, that the disparity worker took. Timestamps
  /// of no frame stand for the oldest and the newest that are known.
  std::vector<std::uint32_t> matchedBetween(std::chrono::microseconds first, std::chrono::microseconds last) const;
  /// Frames delivered so far, without those of the warm-up.
  std::uint64_t frames() const;

private:
  const Delivery* find(std::chrono::microseconds timestamp) const;

  static constexpr std::size_t kept = 1U << 14U;

  mutable std::mutex m_mutex;                // guards all of it
  std::vector<Delivery> m_deliveries{kept};  // by number, modulo their count
  std::uint32_t m_newest = 0;                // 0: none yet
  std::uint64_t m_total = 0;
  std::uint64_t m_frames = 0;
};

}  // namespace stereo::soak
