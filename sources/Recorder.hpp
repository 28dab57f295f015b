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

#include "sources/Recording.hpp"

namespace stereo::sources {

/// Writes raw frames with their timestamps into the folder of a `Recording`, on a thread of its own.
///
/// Whoever delivers frames never waits for the disk: a frame for which there is no room in the queue is left out and
/// counted.
class Recorder {
public:
  struct Options {
    std::filesystem::path folder;        ///< exists; must not hold a file of a recording
    std::string codec = "huffyuv";       ///< "huffyuv" or "ffv1", both lossless
    std::size_t queue = 32;              ///< frames that wait for the disk at most, above 0
    double rate = 30.0;                  ///< frames per second, told to players; above 0
    std::uint64_t most = 0;              ///< frames after which nothing more is taken; 0: no limit
    std::uintmax_t spare = 256'000'000;  ///< bytes that are left free on the disk
  };

  using Counts = Recording::Counts;

  /// Throws RecordingError if the folder holds a file of a recording, cannot be written into or has no room.
  explicit Recorder(Options options);
  /// Ends as `finish` does, but says nothing of what could not be written. Where no frame came, its file of timestamps
  /// goes.
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // The thread that reads the device.

  /// A frame was read; its pixels are copied if there is room for them, until it is known whether it is published.
  void read(const cv::Mat& frame);
  /// The timestamp of the frame published last is this. If it is another than at the last call, the frame read last was
  /// published with it, otherwise thrown away.
  void published(std::chrono::microseconds timestamp);

  // The host's thread.

  /// Waits until a frame was written after `counts`; false if the time is over first. Throws what `finish` throws.
  bool awaitFrame(const Counts& counts, std::chrono::milliseconds limit);
  Counts counts() const;
  /// Number and size of the frames written, and what else is to be told of them.
  cv::Size frameSize() const;
  /// Of the frames written so far, as far as they have reached the file.
  std::uintmax_t bytes() const;
  /// Writes what still waits and closes the files. No frame may come any more. Throws RecordingError if something
  /// could not be written: what was until then is there to be replayed. Once.
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
  cv::Mat m_candidate;          // copy of the frame read last; empty: there is none, or was no room
  bool m_hasCandidate = false;  // whether a frame was read since the last publication
  std::int64_t m_newestTimestamp = 0;

  mutable std::mutex m_mutex;  // guards what follows
  std::condition_variable m_queued;
  std::condition_variable m_progress;
  std::deque<Entry> m_queue;
  std::vector<cv::Mat> m_free;  // pixels to be used again
  std::size_t m_buffers = 0;    // made so far
  Counts m_counts;
  std::uint64_t m_taken = 0;  // into the queue
  cv::Size m_frameSize;
  int m_frameType = -1;
  bool m_ending = false;
  std::exception_ptr m_failure;

  std::thread m_thread;
};

}  // namespace stereo::sources
