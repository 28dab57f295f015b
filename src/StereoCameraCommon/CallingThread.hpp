// SPDX-License-Identifier: Apache-2.0
// What the calling thread is doing with a camera: working on disparities, a rectified read, holding a cloud's lock.
#pragma once

#include <mutex>

class StereoCamera;

namespace stereo {

/// Makes the calling thread a camera's disparity worker for as long as this lives. A read on the worker passes through
/// two virtual operations on its way to the wait for a frame, so only the thread distinguishes it from a reader's.
class DisparityWorkerThread {
public:
  explicit DisparityWorkerThread(const StereoCamera* camera);
  ~DisparityWorkerThread();
  DisparityWorkerThread(const DisparityWorkerThread&) = delete;
  DisparityWorkerThread& operator=(const DisparityWorkerThread&) = delete;

  /// Whether the calling thread is that camera's disparity worker.
  static bool isOf(const StereoCamera* camera);
};

/// A rectified read on the calling thread, from before it asks for the raw eyes. That request may go through an
/// override that fails for its own reasons; this records whether a stop operation ended the wait.
class RectifiedRead {
public:
  explicit RectifiedRead(const StereoCamera* camera);
  ~RectifiedRead();
  RectifiedRead(const RectifiedRead&) = delete;
  RectifiedRead& operator=(const RectifiedRead&) = delete;

  bool wasEndedByStop() const { return m_endedByStop; }

  /// Records for the innermost rectified read of `camera` on the calling thread, if any, how its wait for a frame
  /// ended.
  static void note(const StereoCamera* camera, bool endedByStop);

private:
  const StereoCamera* const m_camera;
  RectifiedRead* const m_outer;
  bool m_endedByStop = false;
};

/// The calling thread's lock on a camera's `m_disparityMutex` while foreign code runs: an override, or the callback of
/// a window. A stop operation called from there must not wait for that lock.
class HeldDisparityLock {
public:
  HeldDisparityLock(const StereoCamera* camera, std::unique_lock<std::mutex>& lock);
  ~HeldDisparityLock();
  HeldDisparityLock(const HeldDisparityLock&) = delete;
  HeldDisparityLock& operator=(const HeldDisparityLock&) = delete;

  /// The calling thread's lock on the camera's mutex, or null.
  static std::unique_lock<std::mutex>* of(const StereoCamera* camera);

private:
  const StereoCamera* const m_camera;
  std::unique_lock<std::mutex>& m_lock;
  HeldDisparityLock* const m_outer;
};

/// Releases a lock for as long as this lives. Null: does nothing.
class ScopedUnlock {
public:
  explicit ScopedUnlock(std::unique_lock<std::mutex>* lock) : m_lock(lock) {
    if (m_lock != nullptr) {
      m_lock->unlock();
    }
  }
  ~ScopedUnlock() {
    if (m_lock != nullptr) {
      m_lock->lock();
    }
  }
  ScopedUnlock(const ScopedUnlock&) = delete;
  ScopedUnlock& operator=(const ScopedUnlock&) = delete;

private:
  std::unique_lock<std::mutex>* const m_lock;
};

}  // namespace stereo
