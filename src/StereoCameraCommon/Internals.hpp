// SPDX-License-Identifier: Apache-2.0
// The private state of a camera, and its locks.
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
#include "src/system/SharedSegment.hpp"
#include "src/system/VideoDevice.hpp"

/// The private state of a camera, beside its protected members.
///
/// The mutexes here are leaf locks: held for a few assignments (or, where noted, for one call into the device or the
/// stream), never while waiting, sleeping or calling a virtual operation, and never two of them at once (except inside
/// `ReadWatchdog`, which holds one through a read and takes another briefly under it). They may be taken while one of
/// the class's own two mutexes is held, never the other way round.
struct StereoCamera::Internals {
  /// Runs the reads of the device, one at a time: a worker superseded by a second start still reads until the stop.
  /// Shared with the workers.
  std::shared_ptr<stereo::ReadWatchdog> deviceWatchdog = std::make_shared<stereo::ReadWatchdog>();
  /// Watches the disparity worker's waits for a frame, which its stop lets continue as long as frames come.
  stereo::ReadWatchdog disparityWatchdog;

  // The device behind `m_videoCapture`, for a stop that has to interrupt a read. The host's thread only.
  const cv::VideoCapture* openedDevice = nullptr;                ///< object that the next two describe
  stereo::sys::BackEnd backEnd = stereo::sys::BackEnd::foreign;  ///< what reads it
  int openedNode = -1;  ///< N of its /dev/videoN; `m_deviceNode` may change later

  /// Guards each offer into a shared-memory segment (see `deviceWatchdog`) and the list of segments.
  std::mutex segmentMutex;
  /// Segments of running workers. Each belongs to its worker, or to the stop once that worker is abandoned.
  std::vector<std::shared_ptr<stereo::sys::SharedSegment>> segments;
  /// Guards the headers of the maps and of the camera matrix: a second start swaps them while readers use them.
  std::mutex mapMutex;
  /// Guards the headers of `m_disparityFrame`, which the colored depth reads without `m_disparityMutex`.
  std::mutex disparityHeaderMutex;
  /// Guards `m_videoWriter`: the swap when it is opened, and each write.
  std::mutex writerMutex;

  // Guarded by m_frameMutex.
  std::uint64_t publishedFrames = 0;          ///< by the capture worker
  std::chrono::microseconds ownTimestamp{0};  ///< of the latest of them
  std::uint64_t frameWakeups = 0;             ///< notifications of `m_frameCond` without a new frame
  std::uint64_t frameReleases = 0;            ///< those after which none can come
  std::uint64_t captureStops = 0;             ///< those after which none comes from the capture worker
  bool disparityReadEnded = false;            ///< ends the disparity worker's read: no frame for too long
  std::atomic<bool> captureStopped = false;   ///< `stopCapture` ended a worker; also read without the mutex

  // Guarded by m_disparityMutex.
  std::uint64_t publishedDisparities = 0;  ///< by the disparity worker
  std::chrono::microseconds ownDisparityTimestamp{0};
  std::uint64_t disparityReleases = 0;  ///< notifications of `m_disparityCond` after which none can come
  std::uint64_t disparityStops = 0;     ///< those after the capture worker's end, after which none may come
  /// The disparity worker waits for a frame of a capture worker that has ended.
  std::atomic<bool> disparityStarved = false;

  /// Recycles the memory of images from frame to frame.
  stereo::sys::ImageMemoryUser imageMemory;

  /// Workers replaced by a second `startCapture`; joined by `stopCapture`. The host's thread only.
  std::vector<std::thread> supersededWorkers;
};
