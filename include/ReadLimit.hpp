// SPDX-License-Identifier: Apache-2.0
// How long the calling thread's reads of a camera wait.
#pragma once

#include <chrono>
#include <functional>

/// Limits the waits of the calling thread: a `StereoCamera`'s reads wait without a time-out, whatever happens to their
/// host. While one of these lives, a read of any camera on this thread that has to wait ends once its limit is reached.
/// It returns false then, with its outputs untouched, filled or not. Reads that get their result are not affected.
///
///     ReadLimit limit(std::chrono::seconds(2));
///     if (!camera.getRawFrame(frame, timestamp) && limit.wasReached()) { ... }
///
/// Limits nest: the innermost counts. The workers have threads of their own and are not limited.
class ReadLimit {
public:
  /// Reached so long after this moment.
  explicit ReadLimit(std::chrono::steady_clock::duration time);
  /// Reached when `mayGoOn` says false. A read that has to wait asks at once, and then about twenty times a second, on
  /// its own thread, with none of the camera's locks held. It must not throw, nor read or stop a camera.
  explicit ReadLimit(std::function<bool()> mayGoOn);
  ~ReadLimit();
  ReadLimit(const ReadLimit&) = delete;
  ReadLimit& operator=(const ReadLimit&) = delete;

  /// Whether a read was ended by it.
  bool wasReached() const { return m_wasReached; }

  /// The calling thread's, null where there is none. For the library.
  static ReadLimit* current();
  /// Asks, and notes the answer. For the library.
  bool mayGoOn();

private:
  std::function<bool()> m_mayGoOn;
  ReadLimit* m_outer;
  bool m_wasReached = false;
};
