// SPDX-License-Identifier: Apache-2.0
// What the calling thread is doing with a camera.
#include "src/StereoCameraCommon/CallingThread.hpp"

#include <utility>

namespace stereo {

namespace {

thread_local RectifiedRead* innermostRead = nullptr;
thread_local HeldDisparityLock* innermostHold = nullptr;
thread_local const StereoCamera* workedFor = nullptr;  // by a disparity worker

}  // namespace

DisparityWorkerThread::DisparityWorkerThread(const StereoCamera* camera) { workedFor = camera; }

DisparityWorkerThread::~DisparityWorkerThread() { workedFor = nullptr; }

bool DisparityWorkerThread::isOf(const StereoCamera* camera) { return workedFor == camera; }

RectifiedRead::RectifiedRead(const StereoCamera* camera)
    : m_camera(camera), m_outer(std::exchange(innermostRead, this)) {}

RectifiedRead::~RectifiedRead() { innermostRead = m_outer; }

void RectifiedRead::note(const StereoCamera* camera, bool endedByStop) {
  for (RectifiedRead* read = innermostRead; read != nullptr; read = read->m_outer) {
    if (read->m_camera == camera) {
      read->m_endedByStop = endedByStop;
      return;
    }
  }
}

HeldDisparityLock::HeldDisparityLock(const StereoCamera* camera, std::unique_lock<std::mutex>& lock)
    : m_camera(camera), m_lock(lock), m_outer(std::exchange(innermostHold, this)) {}

HeldDisparityLock::~HeldDisparityLock() { innermostHold = m_outer; }

std::unique_lock<std::mutex>* HeldDisparityLock::of(const StereoCamera* camera) {
  for (HeldDisparityLock* hold = innermostHold; hold != nullptr; hold = hold->m_outer) {
    if (hold->m_camera == camera) {
      return &hold->m_lock;
    }
  }
  return nullptr;
}

}  // namespace stereo
