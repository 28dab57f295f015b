// SPDX-License-Identifier: Apache-2.0
// Receives a camera's network stream.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include <opencv2/core.hpp>

typedef struct _GstElement GstElement;  // NOLINT(bugprone-reserved-identifier): GStreamer's own name for it

namespace stereo::app {

/// Images of a camera's network stream, from a UDP port of this machine.
///
/// GStreamer receives packets and decodes on threads of its own, and each image is copied into a queue. If the host
/// takes images more slowly than they come, the oldest in the queue are dropped; packets are not. Used by one thread.
class NetworkImages {
public:
  /// Starts listening. Throws Failure (source) if the port cannot be opened or GStreamer lacks an element.
  explicit NetworkImages(int port);
  ~NetworkImages();
  NetworkImages(const NetworkImages&) = delete;
  NetworkImages& operator=(const NetworkImages&) = delete;

  /// Waits for the next image, at most `limit`. CV_8UC3 (blue, green, red) with pixels of its own; empty if none came.
  /// Throws Failure (source) if the pipeline failed.
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
