// SPDX-License-Identifier: Apache-2.0
// Writes a recording: frames and timestamps, on a thread of its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "sources/FrameTap.hpp"
#include "sources/Recording.hpp"

namespace stereo::sources {

/// Writes raw frames with their timestamps into the folder of a `Recording`, on a thread of its own.
///
/// The thread that delivers frames never waits for the disk: a frame that finds the queue full is dropped and counted.
class Recorder final : public FrameTap {
public:
  struct Options {
    std::filesystem::path folder;        ///< exists; must not hold a file of a recording
    std::string codec = "huffyuv";       ///< "huffyuv" or "ffv1", both lossless
    std::size_t queue = 32;              ///< most frames that wait for the disk, above 0
    double rate = 30.0;                  ///< frames per second, for players; above 0
    std::uint64_t most = 0;              ///< most frames to record; 0: no limit
    std::uintmax_t spare = 256'000'000;  ///< bytes to leave free on the disk
  };

  using Counts = Recording::Counts;

  /// Throws RecordingError if the folder holds a file of a recording, is not writable or has no room.
  explicit Recorder(Options options);
  /// Ends as `finish` does, but ignores errors. Removes the file of timestamps if no frame came.
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // The thread that reads the device.

  /// Copies the pixels if there is room, until it is known whether the frame is published.
  void read(const cv::Mat& frame) override;
  void published(std::chrono::microseconds timestamp) override;

  // The host's thread.

  /// Waits until more frames are written than in `counts`; false after the time limit. Throws as `finish` does.
  bool awaitFrame(const Counts& counts, std::chrono::milliseconds limit);
  Counts counts() const;
  /// Numbers of frames written, dropped and unfit, and the size of the frames.
  cv::Size frameSize() const;
  /// Bytes of the frames that have reached the file so far.
  std::uintmax_t bytes() const;
  /// Writes the waiting frames and closes the files. No frame may come afterward. Throws RecordingError if something
  /// could not be written; what was written before can be replayed. Call once.
  void finish();

private:
  using Entry = std::pair<cv::Mat, std::int64_t>;  // pixels; timestamp in microseconds

  void loop();
  void write(const Entry& entry);
  void requireRoom() const;
  void open(const cv::Mat& frame);
  void close();

  const Options m_options;
  std::ofstream m_timestamps;
  cv::VideoWriter m_video;  // the writing thread's

  // The reading thread's.
  cv::Mat m_candidate;          // copy of the frame read last; empty if none or no room
  bool m_hasCandidate = false;  // whether a frame was read since the last publication
  std::int64_t m_newestTimestamp = 0;

  mutable std::mutex m_mutex;  // guards what follows
  std::condition_variable m_queued;
  std::condition_variable m_progress;
  std::deque<Entry> m_queue;
  std::vector<cv::Mat> m_free;  // buffers to reuse
  std::size_t m_buffers = 0;    // allocated so far
  Counts m_counts;
  std::uint64_t m_taken = 0;  // into the queue
  cv::Size m_frameSize;
  int m_frameType = -1;
  bool m_ending = false;
  std::exception_ptr m_failure;

  std::thread m_thread;
};

}  // namespace stereo::sources
