// SPDX-License-Identifier: Apache-2.0
// Limits how long a thread's reads of a camera wait.
#pragma once

#include <chrono>
#include <functional>

#include "StereoCameraExport.hpp"

/// Limits the waits of the calling thread: reads of a `StereoCamera` wait without a timeout otherwise. While a
/// `ReadLimit` exists, a read of any camera on its thread that has to wait ends once the limit is reached, and returns
/// false with its outputs untouched, filled or not. Reads that get their result are not affected.
///
///     ReadLimit limit(std::chrono::seconds(2));
///     if (!camera.getRawFrame(frame, timestamp) && limit.wasReached()) { ... }
///
/// Limits nest: the innermost one applies. The workers run on their own threads and are not limited.
class STEREO_CAMERA_EXPORT ReadLimit {
public:
  /// Reached `time` from now.
  explicit ReadLimit(std::chrono::steady_clock::duration time);
  /// Reached when `mayGoOn` returns false. A read that has to wait calls it at once, and then about twenty times a
  /// second, on its own thread, with none of the camera's locks held. It must not throw, nor read or stop a camera.
  explicit ReadLimit(std::function<bool()> mayGoOn);
  ~ReadLimit();
  ReadLimit(const ReadLimit&) = delete;
  ReadLimit& operator=(const ReadLimit&) = delete;

  /// Whether it has ended a read.
  bool wasReached() const { return m_wasReached; }

  /// The calling thread's innermost limit, or null. For the library.
  static ReadLimit* current();
  /// Calls `mayGoOn` and records the answer. For the library.
  bool mayGoOn();

private:
  std::function<bool()> m_mayGoOn;
  ReadLimit* m_outer;
  bool m_wasReached = false;
};
