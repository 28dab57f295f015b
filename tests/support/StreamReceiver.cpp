// SPDX-License-Identifier: Apache-2.0
#include "tests/support/StreamReceiver.hpp"

#include <stdexcept>

#include <arpa/inet.h>
#include <gst/gst.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace stereo::test {

bool inOwnNetwork() {
  ifaddrs* addresses = nullptr;
  if (getifaddrs(&addresses) != 0) {
    return false;
  }
  bool receiverIsLocal = false;
  bool leadsOut = false;
  for (const ifaddrs* each = addresses; each != nullptr; each = each->ifa_next) {
    if ((each->ifa_flags & IFF_LOOPBACK) == 0) {
      leadsOut = true;
    } else if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET) {
      const auto* const address = reinterpret_cast<const sockaddr_in*>(each->ifa_addr);
      receiverIsLocal = receiverIsLocal || address->sin_addr.s_addr == inet_addr("192.168.10.15");
    }
  }
  freeifaddrs(addresses);
  return receiverIsLocal && !leadsOut;
}

StreamReceiver::StreamReceiver(int port) {
  gst_init(nullptr, nullptr);
  // One decoder thread: with more, the decoder holds back the last pictures until the stream ends.
  const std::string text = "udpsrc port=" + std::to_string(port) +
                           " buffer-size=33554432 caps=\"application/x-rtp,media=video,encoding-name=H264,"
                           "clock-rate=90000,payload=96\" ! rtph264depay ! avdec_h264 max-threads=1 ! videoconvert ! "
                           "video/x-raw,format=BGR ! fakesink name=sink sync=false async=false signal-handoffs=true";
  GError* error = nullptr;
  m_pipeline = gst_parse_launch(text.c_str(), &error);
  if (error != nullptr) {
    const std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error(message);
  }
  GstElement* const sink = gst_bin_get_by_name(GST_BIN(m_pipeline), "sink");
  g_signal_connect(sink, "handoff", G_CALLBACK(&StreamReceiver::handOver), this);
  gst_object_unref(sink);
  gst_element_set_state(m_pipeline, GST_STATE_PLAYING);
  gst_element_get_state(m_pipeline, nullptr, nullptr, 10 * GST_SECOND);
}

StreamReceiver::~StreamReceiver() {
  gst_element_set_state(m_pipeline, GST_STATE_NULL);
  gst_object_unref(m_pipeline);
}

void StreamReceiver::handOver(GstElement*, void* buffer, void* pad, void* self) {
  auto* const receiver = static_cast<StreamReceiver*>(self);
  GstCaps* const caps = gst_pad_get_current_caps(static_cast<GstPad*>(pad));
  int width = 0;
  int height = 0;
  gst_structure_get_int(gst_caps_get_structure(caps, 0), "width", &width);
  gst_structure_get_int(gst_caps_get_structure(caps, 0), "height", &height);
  gst_caps_unref(caps);
  GstMapInfo map;
  if (gst_buffer_map(static_cast<GstBuffer*>(buffer), &map, GST_MAP_READ) != 0) {
    const std::size_t stride = (static_cast<std::size_t>(width) * 3 + 3) / 4 * 4;  // rows begin at multiples of four
    const cv::Mat picture(height, width, CV_8UC3, map.data, stride);
    const std::lock_guard lock(receiver->m_mutex);
    receiver->m_frames.push_back(picture.clone());
    gst_buffer_unmap(static_cast<GstBuffer*>(buffer), &map);
  }
}

std::size_t StreamReceiver::count() const {
  const std::lock_guard lock(m_mutex);
  return m_frames.size();
}

std::vector<cv::Mat> StreamReceiver::frames() const {
  const std::lock_guard lock(m_mutex);
  return m_frames;
}

PacketCounter::PacketCounter(int port) : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
  sockaddr_in any{};
  any.sin_family = AF_INET;
  any.sin_port = htons(static_cast<std::uint16_t>(port));
  any.sin_addr.s_addr = htonl(INADDR_ANY);
  if (m_socket < 0 || bind(m_socket, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
    throw std::runtime_error("cannot listen");
  }
}

PacketCounter::~PacketCounter() { close(m_socket); }

int PacketCounter::count() {
  char packet[65536];
  while (recv(m_socket, packet, sizeof packet, 0) >= 0) {
    ++m_count;
  }
  return m_count;
}

}  // namespace stereo::test
