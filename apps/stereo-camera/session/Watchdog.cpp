// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/session/Watchdog.hpp"

#include <algorithm>
#include <cstdlib>
#include <future>
#include <iostream>
#include <utility>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/camera/SupportedFormats.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

// A stop takes at most thirteen seconds, on a device whose driver and back end do nothing to end a read.
constexpr std::chrono::seconds stopGrace{20};
constexpr std::chrono::milliseconds lookAround{20};  // interval of checks for signals and the end of the source

[[noreturn]] void abandon() {
  std::cerr << "stereo-camera: the device does not end its read; giving up on it" << std::endl;
  std::_Exit(static_cast<int>(ExitCode::noFrames));
}

}  // namespace

Watchdog::Watchdog(OpenedCamera& opened, double patience)
    : Watchdog(*opened.camera, std::chrono::milliseconds(static_cast<long>(1000 * patience)), opened.askedSize) {}

Watchdog::Watchdog(sources::HostCamera& camera, std::chrono::milliseconds patience, cv::Size askedSize)
    : m_camera(camera), m_patience(patience), m_askedSize(askedSize), m_last(Clock::now()), m_thread([this] {
        loop();
      }) {}

Watchdog::~Watchdog() {
  finish();
  m_thread.join();
}

void Watchdog::alive() {
  const std::lock_guard lock(m_mutex);
  m_last = Clock::now();
}

void Watchdog::follow(std::function<std::uint64_t()> progress) {
  const std::lock_guard lock(m_mutex);
  m_progress = std::move(progress);
}

void Watchdog::startStereoCompute() {
  const std::lock_guard lock(m_disparityMutex);
  checkAfterRead(false);  // don't start it after a stop
  m_camera.startStereoCompute();
}

void Watchdog::checkAfterRead(bool got) {
  switch (m_reason.load()) {
    case Reason::none:
      alive();
      break;
    case Reason::noFrames:
      throw Failure(ExitCode::noFrames, "no frame for " + std::to_string(m_patience.count()) +
                                            " ms: is the camera plugged in, and does another program use it? " +
                                            "(try stereo-camera doctor)");
    case Reason::over:
      if (!got) {  // the last frame counts
        throw Ended();
      }
      break;
    case Reason::signal:
      if (!got) {
        checkSignals();
      }
      break;
  }
}

void Watchdog::checkFrameSize() {
  if (m_askedSize.empty()) {
    return;
  }
  std::call_once(m_sizeChecked, [this] {
    const cv::Size size = m_camera.getRawFrameSize();
    if (size != m_askedSize) {
      std::cerr << "stereo-camera: frames come in " << model::sizeText(size) << " instead of "
                << model::sizeText(m_askedSize) << ": give --size " << size.width << "x" << size.height
                << " (\"FrameSize\" in the settings), or try another node of the device" << std::endl;
    }
  });
}

void Watchdog::finish() {
  std::unique_lock lock(m_mutex);
  if (m_phase == Phase::watching) {
    m_phase = Phase::stopping;
    m_last = Clock::now();
    lock.unlock();
    m_changed.notify_all();
    m_camera.stopStereoCompute();
    m_camera.stopCapture();
    lock.lock();
    m_phase = Phase::done;
    m_changed.notify_all();
  }
  m_changed.wait(lock, [this] { return m_phase == Phase::done; });
  if (const std::uint64_t skipped = m_camera.skippedFrames(); skipped > 0 && !std::exchange(m_toldOfSkipped, true)) {
    std::cerr << "stereo-camera: the recording is damaged: " << skipped
              << " of its frames could not be decoded and were left out" << std::endl;
  }
}

// The lock is held.
Watchdog::Reason Watchdog::reasonToStop() const {
  if (signalReceived() != 0) {
    return Reason::signal;
  }
  if (m_camera.isOver()) {
    return Reason::over;
  }
  return Clock::now() < m_last + m_patience ? Reason::none : Reason::noFrames;
}

void Watchdog::loop() {
  std::unique_lock lock(m_mutex);
  while (m_phase == Phase::watching) {
    if (const std::uint64_t progress = m_progress ? m_progress() : 0; progress != m_lastProgress) {
      m_lastProgress = progress;
      m_last = Clock::now();
    }
    const Reason reason = reasonToStop();
    if (reason != Reason::none) {
      m_reason = reason;
      stopCamera(lock);
      return;
    }
    const auto end = m_last + m_patience;
    m_changed.wait_until(lock, std::min(end, Clock::now() + lookAround));
  }
  // The host's thread is stopping it.
  if (!m_changed.wait_until(lock, m_last + stopGrace, [this] { return m_phase == Phase::done; })) {
    abandon();
  }
}

// On the watchdog's thread, since the host's is blocked in a read. The stop itself may not return.
void Watchdog::stopCamera(std::unique_lock<std::mutex>& lock) {
  m_phase = Phase::stopping;
  lock.unlock();
  auto stopped = std::async(std::launch::async, [this] {
    {
      const std::lock_guard disparity(m_disparityMutex);
      m_camera.stopStereoCompute();
    }
    m_camera.stopCapture();
  });
  if (stopped.wait_for(stopGrace) != std::future_status::ready) {
    abandon();
  }
  lock.lock();
  m_phase = Phase::done;
  m_changed.notify_all();
}

}  // namespace stereo::app
