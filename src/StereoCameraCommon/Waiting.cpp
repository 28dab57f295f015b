// SPDX-License-Identifier: Apache-2.0
// How reads wait for the next result, and what ends a wait when none can come.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <optional>

#include "ReadLimit.hpp"
#include "StereoCamera.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/CallingThread.hpp"
#include "src/StereoCameraCommon/Internals.hpp"

using stereo::HeldDisparityLock;
using stereo::loadRelaxed;

namespace {

using Clock = std::chrono::steady_clock;

// How long readers go on waiting after the capture worker has stopped, because a derived class may publish results
// itself or feed the disparity worker.
constexpr std::chrono::seconds graceForOthers{2};

// How often a wait under a `ReadLimit` asks whether it may go on.
constexpr std::chrono::milliseconds limitStep{50};

// Waits for one notification: without a timeout, or until the grace period after a stop of the capture worker is over,
// or until the calling thread's `ReadLimit` is reached.
class LimitedWait {
public:
  /// False if the wait has to end without a result. The lock may have been released for a moment: `isThere` then says
  /// whether the result came meanwhile.
  template <typename IsThere>
  bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, bool captureHasStopped,
            const IsThere& isThere) {
    if (captureHasStopped && !m_end) {
      m_end = Clock::now() + graceForOthers;
    }
    if (m_limit == nullptr && !m_end) {
      condition.wait(lock);
      return true;
    }
    for (;;) {
      if (m_limit != nullptr && !askLimit(lock)) {
        return false;
      }
      if (isThere()) {
        return true;
      }
      const Clock::time_point now = Clock::now();
      if (m_end && now >= *m_end) {
        return false;
      }
      const Clock::time_point step =
          m_limit == nullptr ? *m_end : std::min(now + limitStep, m_end.value_or(now + limitStep));
      if (condition.wait_until(lock, step) == std::cv_status::no_timeout) {
        return true;
      }
    }
  }

private:
  // The limit's function may take other locks, such as an interpreter's.
  bool askLimit(std::unique_lock<std::mutex>& lock) {
    lock.unlock();
    const bool may = m_limit->mayGoOn();
    lock.lock();
    return may;
  }

  ReadLimit* const m_limit = ReadLimit::current();
  std::optional<Clock::time_point> m_end;
};

// Whether the base class's worker did not publish the latest result: its timestamp is another one, or there is an image
// although that worker has published none.
bool publishedElsewhere(const StereoCamera::TimeFrame& latest, std::uint64_t ownPublications,
                        std::chrono::microseconds ownTimestamp) {
  return loadRelaxed(latest.timestamp) != ownTimestamp || (ownPublications == 0 && !latest.first.empty());
}

}  // namespace

// Whether the only source of frames has ended. `m_frameMutex` is held.
bool StereoCamera::noFrameCanCome() const {
  const Internals& shared = *m_internals;
  return shared.captureStopped && !publishedElsewhere(m_rawFrame, shared.publishedFrames, shared.ownTimestamp);
}

// Waits for the next frame published after this call began. `frameLock` holds `m_frameMutex`. Waits once, without a
// timeout; any notification of `m_frameCond` ends it. False if a stop operation ended the wait: `stopStereoCompute` for
// the disparity worker, `stopCapture` for every other thread. Records the outcome for a rectified read on this thread.
bool StereoCamera::waitForFrame(std::unique_lock<std::mutex>& frameLock, bool isDisparityWorker) {
  const bool came = isDisparityWorker ? waitAsDisparityWorker(frameLock) : waitAsReader(frameLock);
  stereo::RectifiedRead::note(this, !came);
  return came;
}

// The wait of any thread but the disparity worker. `stopCapture` ends it.
bool StereoCamera::waitAsReader(std::unique_lock<std::mutex>& frameLock) {
  const Internals& shared = *m_internals;
  if (noFrameCanCome()) {
    return false;
  }
  const auto isReleased = [&shared, releases = shared.frameReleases] { return shared.frameReleases != releases; };
  // A frame that came together with a stop still counts. The timestamp shows frames that a derived class published.
  const auto hasArrived = [this, published = shared.publishedFrames, timestamp = m_rawFrame.timestamp] {
    return m_internals->publishedFrames != published || m_rawFrame.timestamp != timestamp;
  };
  const std::uint64_t stops = shared.captureStops;
  LimitedWait limitedWait;
  std::uint64_t wakeups = 0;
  do {
    wakeups = shared.frameWakeups;
    const bool goesOn = limitedWait.wait(m_frameCond, frameLock, shared.captureStops != stops,
                                         [&] { return hasArrived() || shared.frameWakeups != wakeups; });
    if (hasArrived()) {
      return true;
    }
    if (isReleased() || !goesOn) {
      return false;
    }
  } while (shared.frameWakeups != wakeups);
  return true;
}

// The disparity worker's wait. `stopStereoCompute` ends it, but only if no frame comes: it lets the cycle finish.
bool StereoCamera::waitAsDisparityWorker(std::unique_lock<std::mutex>& frameLock) {
  Internals& shared = *m_internals;
  const stereo::ReadWatchdog::ReadScope scope(shared.disparityWatchdog);
  const std::uint64_t published = shared.publishedFrames;
  const std::chrono::microseconds timestamp = m_rawFrame.timestamp;
  for (;;) {
    if (shared.publishedFrames != published || m_rawFrame.timestamp != timestamp) {
      shared.disparityStarved = false;
      return true;
    }
    if (shared.disparityReadEnded || (noFrameCanCome() && !m_isComputing)) {
      return false;
    }
    if (noFrameCanCome() && !shared.disparityStarved.exchange(true)) {
      // No disparity can come either. The two mutexes are never held together.
      frameLock.unlock();
      releaseDisparityReaders();
      frameLock.lock();
      continue;
    }
    const std::uint64_t wakeups = shared.frameWakeups;
    m_frameCond.wait(frameLock);
    if (shared.frameWakeups == wakeups) {
      shared.disparityStarved = false;
      return true;
    }
  }
}

// Waits for the next disparity: once, without a timeout; any notification of `m_disparityCond` ends it. The returned
// lock holds `m_disparityMutex`; it holds nothing if a stop operation ended the wait.
std::unique_lock<std::mutex> StereoCamera::waitForDisparity() {
  Internals& shared = *m_internals;
  std::unique_lock<std::mutex> lock;
  bool captureGone = false;
  bool sawStopped = false;
  do {
    if (lock.owns_lock()) {
      lock.unlock();  // a stop came between the two locks and has already notified
    }
    sawStopped = shared.captureStopped;
    if (sawStopped) {
      const std::lock_guard frames(m_frameMutex);
      captureGone = noFrameCanCome();
    }
    lock = std::unique_lock(m_disparityMutex);
  } while (shared.captureStopped != sawStopped);
  const bool isFed = m_isComputing && !shared.disparityStarved;
  if (captureGone && !isFed &&
      !publishedElsewhere(m_disparityFrame, shared.publishedDisparities, shared.ownDisparityTimestamp)) {
    return {};
  }
  // The timestamp shows disparities that a derived class published while a limited wait had released the lock.
  const auto hasArrived = [this, published = shared.publishedDisparities,
                           timestamp = loadRelaxed(m_disparityFrame.timestamp)] {
    return m_internals->publishedDisparities != published || loadRelaxed(m_disparityFrame.timestamp) != timestamp;
  };
  const std::uint64_t releases = shared.disparityReleases;
  const std::uint64_t stops = shared.disparityStops;
  LimitedWait limitedWait;
  std::uint64_t stopsBefore = 0;
  do {
    stopsBefore = shared.disparityStops;
    const bool goesOn = limitedWait.wait(m_disparityCond, lock, shared.disparityStops != stops, [&] {
      return hasArrived() || shared.disparityReleases != releases || shared.disparityStops != stopsBefore;
    });
    if (hasArrived()) {
      return lock;
    }
    if (shared.disparityReleases != releases || !goesOn) {
      return {};
    }
  } while (shared.disparityStops != stopsBefore);
  return lock;
}

// Releases waiting readers of frames once `stopCapture` has ended the worker, if there was one. Also wakes a waiting
// disparity worker so that it notices.
void StereoCamera::releaseFrameReaders(bool captureEnded) {
  Internals& shared = *m_internals;
  const std::lock_guard lock(m_frameMutex);
  if (captureEnded) {
    shared.captureStopped = true;
  }
  if (publishedElsewhere(m_rawFrame, shared.publishedFrames, shared.ownTimestamp)) {
    ++shared.captureStops;
  } else {
    ++shared.frameReleases;
  }
  ++shared.frameWakeups;
  m_frameCond.notify_all();
}

std::unique_lock<std::mutex> StereoCamera::lockDisparityUnlessHeld() {
  return HeldDisparityLock::of(this) == nullptr ? std::unique_lock(m_disparityMutex) : std::unique_lock<std::mutex>();
}

// Releases waiting readers of disparities: none can come.
void StereoCamera::releaseDisparityReaders() {
  const auto lock = lockDisparityUnlessHeld();
  ++m_internals->disparityReleases;
  m_disparityCond.notify_all();
}

// Releases waiting readers of disparities once `stopCapture` is done. An override may still feed the disparity worker;
// if not, the worker releases them when it misses its next frame.
void StereoCamera::releaseDisparityReadersOfCapture() {
  Internals& shared = *m_internals;
  const auto lock = lockDisparityUnlessHeld();
  const bool isFed = m_isComputing && !shared.disparityStarved;
  if (isFed || publishedElsewhere(m_disparityFrame, shared.publishedDisparities, shared.ownDisparityTimestamp)) {
    ++shared.disparityStops;
  } else {
    ++shared.disparityReleases;
  }
  m_disparityCond.notify_all();
}
