// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the library's own name for it
typedef struct _GstElement GstElement;

namespace stereo::test {

/// Whether this process is in a network of its own where the stream's receiver is a local address and nothing leads
/// out.
bool inOwnNetwork();

/// Receives the camera's stream on a port and keeps every decoded picture, in order.
class StreamReceiver {
public:
  /// Listens once constructed. Throws std::runtime_error where GStreamer lacks an element.
  explicit StreamReceiver(int port);
  ~StreamReceiver();
  StreamReceiver(const StreamReceiver&) = delete;
  StreamReceiver& operator=(const StreamReceiver&) = delete;

  std::size_t count() const;
  std::vector<cv::Mat> frames() const;

private:
  static void handOver(GstElement* sink, void* buffer, void* pad, void* self);

  GstElement* m_pipeline;
  mutable std::mutex m_mutex;
  std::vector<cv::Mat> m_frames;
};

/// Counts what arrives on a UDP port, whatever it is.
class PacketCounter {
public:
  explicit PacketCounter(int port);
  ~PacketCounter();
  PacketCounter(const PacketCounter&) = delete;
  PacketCounter& operator=(const PacketCounter&) = delete;

  /// Takes what has arrived so far; returns the number of packets since construction.
  int count();

private:
  int m_socket;
  int m_count = 0;
};

}  // namespace stereo::test
