// SPDX-License-Identifier: Apache-2.0
// The disparity worker: start, cycles, stop.
#include <memory>
#include <utility>

#include <unistd.h>

#include "StereoCamera.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/CallingThread.hpp"
#include "src/StereoCameraCommon/Internals.hpp"
#include "src/StereoCameraCommon/LogReports.hpp"
#include "src/core/Matcher.hpp"
#include "src/system/ImageMemory.hpp"

using stereo::loadRelaxed;
using stereo::reportInfo;
using stereo::storeRelaxed;
using stereo::sys::recycledCopy;
using stereo::sys::recycledImage;

namespace {

constexpr useconds_t startPause = 5'000;        // microseconds
constexpr useconds_t publicationPause = 1'000;  // microseconds

}  // namespace

bool StereoCamera::startStereoCompute() {
  // One worker at a time: with a second one, nobody would join the first.
  if (m_computeThread != nullptr) {
    return false;
  }
  usleep(startPause);
  reportInfo(m_log, "Start stereo computing ...\n");
  {
    const std::lock_guard lock(m_frameMutex);
    m_internals->disparityReadEnded = false;
  }
  m_internals->disparityStarved = false;
  m_isComputing = true;
  m_internals->disparityWatchdog.workerStarts();
  try {
    m_computeThread = new std::thread([this] {
      disparityWorker();
      m_internals->disparityWatchdog.workerEnds();
    });
  } catch (...) {
    m_internals->disparityWatchdog.workerEnds();
    m_isComputing = false;  // the thread could not be created
    throw;
  }
  return m_computeThread != nullptr;
}

void StereoCamera::disparityWorker() {
  const stereo::DisparityWorkerThread thread(this);
  auto matcher = std::make_unique<stereo::core::Matcher>(loadRelaxed(m_algorithm));
  while (m_isComputing) {
    // Empty in every cycle: an output that the read leaves untouched must not show the last frame.
    cv::Mat left = recycledImage();
    cv::Mat right = recycledImage();
    cv::Mat view = recycledImage();
    std::chrono::microseconds timestamp{0};
    if (!getRectStereoFrame(left, right, view, timestamp)) {
      continue;
    }
    stereo::core::MatchBuffers buffers{recycledImage(), recycledImage(), recycledImage()};
    cv::Mat disparity = recycledImage();
    // The matcher is chosen when the worker starts. With another setting since, the published disparity is empty.
    matcher->compute(loadRelaxed(m_algorithm), left, right, buffers, disparity);

    const std::lock_guard lock(m_disparityMutex);
    cv::Mat publishedView = recycledCopy(view);
    cv::Mat publishedDisparity = recycledCopy(disparity);
    {
      const std::lock_guard headers(m_internals->disparityHeaderMutex);
      std::swap(m_disparityFrame.first, publishedView);
      std::swap(m_disparityFrame.second, publishedDisparity);
    }
    storeRelaxed(m_disparityFrame.timestamp, timestamp);
    ++m_internals->publishedDisparities;
    m_internals->ownDisparityTimestamp = timestamp;
    m_disparityCond.notify_all();
    usleep(publicationPause);  // under the lock: readers copy this result before the next one can replace it
  }
  matcher.reset();
  reportInfo(m_log, "Exit compute disparity worker ...\n");
}

bool StereoCamera::stopStereoCompute() {
  m_isComputing = false;
  if (m_computeThread == nullptr) {
    releaseDisparityReaders();
    return true;
  }
  {
    // Called from inside a colored cloud, this thread holds the lock that the worker may need to publish.
    std::unique_lock<std::mutex>* const held = stereo::HeldDisparityLock::of(this);
    const stereo::ScopedUnlock unlocked(held);
    if (!stereo::DisparityWorkerThread::isOf(this)) {
      awaitDisparityWorker();
    }
    m_computeThread->join();
  }
  delete m_computeThread;
  m_computeThread = nullptr;
  reportInfo(m_log, "Stop stereo compute done.\n");
  releaseDisparityReaders();
  return true;
}

// Waits until the worker has finished its cycle. A read in progress gets its frame; it is ended only if no frame can
// come, or none has come for two seconds.
void StereoCamera::awaitDisparityWorker() {
  Internals& shared = *m_internals;
  {
    const std::lock_guard lock(m_frameMutex);
    if (noFrameCanCome()) {
      ++shared.frameWakeups;
      m_frameCond.notify_all();
    }
  }
  shared.disparityWatchdog.awaitWorkers([this, &shared](int attempt) {
    if (attempt == 0) {
      const std::lock_guard lock(m_frameMutex);
      shared.disparityReadEnded = true;
      ++shared.frameWakeups;
      m_frameCond.notify_all();
    }
  });
}
