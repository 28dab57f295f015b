// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include <opencv2/core.hpp>

typedef struct _GstElement GstElement;  // NOLINT(bugprone-reserved-identifier): GStreamer's own name for it

namespace stereo::app {

/// The images of a camera's network stream, as they arrive on a UDP port of this machine.
///
/// GStreamer takes packets and decodes on threads of its own, and copies each image into a queue. Where the host takes
/// images more slowly than they come, the oldest in the queue are dropped: images may be missing then, but packets are
/// not. Used by one thread.
class NetworkImages {
public:
  /// Listens once constructed. Throws Failure (source) if the port cannot be had or GStreamer lacks an element.
  explicit NetworkImages(int port);
  ~NetworkImages();
  NetworkImages(const NetworkImages&) = delete;
  NetworkImages& operator=(const NetworkImages&) = delete;

  /// Waits for the next image, no longer than `limit`. CV_8UC3 (blue, green, red) with pixels of its own; empty if none
  /// came. Throws Failure (source) when the receiver has broken down.
  cv::Mat next(std::chrono::milliseconds limit);

  /// Images dropped so far.
  int dropped() const;

private:
  static void handOver(GstElement* sink, void* buffer, void* pad, void* self);
  void checkPipeline();
  void close();

  GstElement* m_pipeline = nullptr;  // owned
  mutable std::mutex m_mutex;
  std::condition_variable m_arrived;
  std::deque<cv::Mat> m_images;  // guarded by m_mutex
  int m_dropped = 0;             // guarded by m_mutex
};

}  // namespace stereo::app
