// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "StereoCamera.hpp"
#include "src/StereoCameraCommon/ReadWatchdog.hpp"
#include "src/system/ImageMemory.hpp"
#include "src/system/SharedFrame.hpp"
#include "src/system/VideoDevice.hpp"

/// What the camera needs beside its members.
///
/// The mutexes here are leaves: held for a few assignments (or, where said, one call into the device or the stream),
/// never while waiting, sleeping or calling through the virtual table, and never two of them at once (inside
/// `ReadWatchdog` one is held through a read and another taken for a moment under it). They may be taken while one of
/// the class's own two mutexes is held, never the other way round.
struct StereoCamera::Internals {
  /// Reads of the device, one at a time: a worker superseded by a second start still reads until the stop. Workers
  /// share it.
  std::shared_ptr<stereo::ReadWatchdog> deviceWatchdog = std::make_shared<stereo::ReadWatchdog>();
  /// The disparity worker's waits for a frame, which its stop lets go on for as long as frames come.
  stereo::ReadWatchdog disparityWatchdog;

  // The device behind `m_videoCapture`, for a stop that has to end a read of it. The host's thread only.
  const cv::VideoCapture* openedDevice = nullptr;                ///< which object the next two are about
  stereo::sys::BackEnd backEnd = stereo::sys::BackEnd::foreign;  ///< who reads it
  int openedNode = -1;                                           ///< N of its /dev/videoN; settings may change theirs

  /// Round one offer into a shared-memory segment (see `deviceWatchdog`) and round the list of them.
  std::mutex segmentMutex;
  /// Segments of workers that run; each is its worker's, or the stop's where that worker is abandoned.
  std::vector<std::shared_ptr<stereo::sys::SharedFrame>> segments;
  /// Round the headers of the maps and of the camera matrix: a second start swaps them whole under the readers.
  std::mutex mapMutex;
  /// Round the headers of `m_disparityFrame`: the colored depth reads them without `m_disparityMutex`.
  std::mutex disparityHeaderMutex;
  /// Round opening (the swap) and each write of `m_videoWriter`.
  std::mutex writerMutex;

  // Guarded by m_frameMutex.
  std::uint64_t publishedFrames = 0;          ///< by the capture worker
  std::chrono::microseconds ownTimestamp{0};  ///< of the latest of them
  std::uint64_t frameWakeups = 0;             ///< notifications of `m_frameCond` that announce no frame
  std::uint64_t frameReleases = 0;            ///< those that say that none can come
  std::uint64_t captureStops = 0;             ///< those that say so of the capture worker alone
  bool disparityReadEnded = false;            ///< the disparity worker's read is over: no frame came for too long
  std::atomic<bool> captureStopped = false;   ///< `stopCapture` ended a worker; looked at without the mutex, too

  // Guarded by m_disparityMutex.
  std::uint64_t publishedDisparities = 0;  ///< by the disparity worker
  std::chrono::microseconds ownDisparityTimestamp{0};
  std::uint64_t disparityReleases = 0;  ///< notifications of `m_disparityCond` that say that none can come
  std::uint64_t disparityStops = 0;     ///< those that say that none may come, the capture worker having ended
  /// The disparity worker waits for a frame of a capture worker that has ended.
  std::atomic<bool> disparityStarved = false;

  /// Keeps the memory of images from frame to frame.
  stereo::sys::ImageMemoryUser imageMemory;

  /// Workers whose pointer a second `startCapture` replaced; joined by `stopCapture`. The host's thread only.
  std::vector<std::thread> supersededWorkers;
};
