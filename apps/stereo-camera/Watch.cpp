// SPDX-License-Identifier: Apache-2.0
#include "Watch.hpp"

#include <cstdlib>
#include <future>
#include <iostream>

#include "DeviceOffers.hpp"
#include "Failure.hpp"

namespace stereo::app {

namespace {

// A stop takes thirteen seconds at most, on a device whose driver and back end do nothing to end a read.
constexpr std::chrono::seconds stopGrace{20};

[[noreturn]] void abandon() {
  std::cerr << "stereo-camera: the device does not end its read; giving up on it" << std::endl;
  std::_Exit(static_cast<int>(ExitCode::noFrames));
}

}  // namespace

Watch::Watch(StereoCamera& camera, std::chrono::milliseconds patience, cv::Size askedSize)
    : m_camera(camera), m_patience(patience), m_askedSize(askedSize), m_last(Clock::now()), m_thread([this] {
        loop();
      }) {}

Watch::~Watch() {
  finish();
  m_thread.join();
}

void Watch::alive() {
  const std::lock_guard lock(m_mutex);
  m_last = Clock::now();
}

void Watch::startStereoCompute() {
  const std::lock_guard lock(m_disparityMutex);
  checkAfterRead();  // after a stop it would be started for nothing
  m_camera.startStereoCompute();
}

void Watch::checkAfterRead() {
  if (m_expired) {
    throw Failure(ExitCode::noFrames, "no frame for " + std::to_string(m_patience.count()) +
                                          " ms: is the camera plugged in, and does another program hold it? " +
                                          "(stereo-camera doctor tells)");
  }
  alive();
}

void Watch::checkFrameSize() {
  if (m_askedSize.empty()) {
    return;
  }
  std::call_once(m_sizeChecked, [this] {
    const cv::Size size = m_camera.getRawFrameSize();
    if (size != m_askedSize) {
      std::cerr << "stereo-camera: frames come in " << textOf(size) << " instead of " << textOf(m_askedSize)
                << ": give --size " << size.width << "x" << size.height
                << " (\"FrameSize\" in the settings), or try another node of the device" << std::endl;
    }
  });
}

void Watch::finish() {
  {
    const std::lock_guard lock(m_mutex);
    if (m_phase != Phase::watching) {
      return;
    }
    m_phase = Phase::stopping;
    m_last = Clock::now();
  }
  m_changed.notify_all();
  m_camera.stopStereoCompute();
  m_camera.stopCapture();
  {
    const std::lock_guard lock(m_mutex);
    m_phase = Phase::done;
  }
  m_changed.notify_all();
}

void Watch::loop() {
  std::unique_lock lock(m_mutex);
  while (m_phase != Phase::done) {
    const auto end = m_last + (m_phase == Phase::watching ? m_patience : std::chrono::milliseconds(stopGrace));
    if (Clock::now() < end) {
      m_changed.wait_until(lock, end);
      continue;
    }
    if (m_phase == Phase::stopping) {
      abandon();
    }
    // The host's thread sits in a read; the stop has to come from here, and may itself not return.
    m_expired = true;
    m_phase = Phase::done;
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
    return;
  }
}

}  // namespace stereo::app
