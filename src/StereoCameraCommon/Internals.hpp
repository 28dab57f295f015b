// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "StereoCamera.hpp"
#include "StereoCameraCommon/DeviceReads.hpp"
#include "system/ImageMemory.hpp"
#include "system/VideoDevice.hpp"

/// What the camera needs beside its members.
///
/// The mutexes here are leaves: held for a few assignments (or, where said, one call into the device or the stream),
/// never while waiting, sleeping or calling through the virtual table, and never two of them at once (inside
/// `DeviceReads` one is held through a read and another taken for a moment under it). They may be taken while one of
/// the class's own two mutexes is held, never the other way round.
struct StereoCamera::Internals {
  /// Reads of the device, one at a time: a worker superseded by a second start still reads until the stop.
  stereo::DeviceReads deviceReads;
  /// Who reads it; set by a start, for a stop.
  std::atomic<stereo::sys::BackEnd> backEnd{stereo::sys::BackEnd::foreign};
  /// Round one offer into the shared-memory segment, for the same reason.
  std::mutex segmentMutex;
  /// Round the headers of the maps and of the camera matrix: a second start swaps them whole under the readers.
  std::mutex mapMutex;
  /// Round the headers of `m_disparityFrame`: the coloured depth reads them without `m_disparityMutex`.
  std::mutex disparityHeaderMutex;
  /// Round opening (the swap) and each write of `m_videoWriter`.
  std::mutex writerMutex;

  // Guarded by m_frameMutex.
  std::uint64_t publishedFrames = 0;
  std::uint64_t frameWakeups = 0;  ///< notifications of `m_frameCond` that announce no frame
  bool captureStopped = false;     ///< `stopCapture` ran: no further frame can come

  // Guarded by m_disparityMutex.
  std::uint64_t publishedDisparities = 0;
  std::uint64_t disparityReleases = 0;    ///< how often waiting readers of clouds were sent home
  bool disparityReadersReleased = false;  ///< `stopCapture` ran: no further disparity can come

  /// Keeps the memory of images from frame to frame.
  stereo::sys::ImageMemoryUser imageMemory;

  /// Workers whose pointer a second `startCapture` replaced; joined by `stopCapture`. The host's thread only.
  std::vector<std::thread> supersededWorkers;
};
