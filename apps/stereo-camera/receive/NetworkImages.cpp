// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/receive/NetworkImages.hpp"

#include <string>
#include <utility>

#include <gst/gst.h>

#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

namespace {

// A queue between packets and decoder, so that a thread that only receives packets takes a key frame's burst. One
// decoder thread: with more, the decoder holds the last pictures back until the stream ends.
constexpr const char* afterSource =
    " caps=\"application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,payload=96\""
    " ! queue max-size-buffers=0 max-size-time=0 max-size-bytes=67108864"
    " ! rtph264depay ! avdec_h264 max-threads=1 ! videoconvert ! video/x-raw,format=BGR"
    " ! fakesink name=sink sync=false async=false signal-handoffs=true";

constexpr std::size_t mostWaiting = 30;  // images, about a second

[[noreturn]] void fail(const std::string& what) { throw Failure(ExitCode::source, "cannot receive: " + what); }

// The error's message; frees the error.
std::string textOf(GError* error) {
  std::string text = error != nullptr ? error->message : "unknown error";
  g_clear_error(&error);
  return text;
}

// A copy of the buffer's pixels, in the format of the pad.
cv::Mat imageOf(GstBuffer* buffer, GstPad* pad) {
  int width = 0;
  int height = 0;
  GstCaps* const caps = gst_pad_get_current_caps(pad);
  const GstStructure* const format = gst_caps_get_structure(caps, 0);
  gst_structure_get_int(format, "width", &width);
  gst_structure_get_int(format, "height", &height);
  gst_caps_unref(caps);
  GstMapInfo map;
  if (gst_buffer_map(buffer, &map, GST_MAP_READ) == 0) {
    return {};
  }
  cv::Mat image;
  const std::size_t stride = (static_cast<std::size_t>(width) * 3 + 3) / 4 * 4;  // rows are aligned to four bytes
  if (width > 0 && height > 0 && map.size >= stride * static_cast<std::size_t>(height)) {
    image = cv::Mat(height, width, CV_8UC3, map.data, stride).clone();
  }
  gst_buffer_unmap(buffer, &map);
  return image;
}

}  // namespace

NetworkImages::NetworkImages(int port) {
  GError* error = nullptr;
  if (gst_init_check(nullptr, nullptr, &error) == 0) {
    fail(textOf(error));
  }
  // Requested size of the kernel's buffer; it may grant less.
  const std::string source = "udpsrc buffer-size=8388608 port=" + std::to_string(port);
  m_pipeline = gst_parse_launch((source + afterSource).c_str(), &error);
  if (error != nullptr || m_pipeline == nullptr) {
    close();
    fail(textOf(error) + " (Debian: gstreamer1.0-plugins-base, -good and gstreamer1.0-libav)");
  }
  GstElement* const sink = gst_bin_get_by_name(GST_BIN(m_pipeline), "sink");
  g_signal_connect(sink, "handoff", G_CALLBACK(&NetworkImages::handOver), this);
  gst_object_unref(sink);
  if (gst_element_set_state(m_pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    // GStreamer's message only says that something could not be set.
    close();
    fail("port " + std::to_string(port) + " cannot be opened; is another program using it?");
  }
}

NetworkImages::~NetworkImages() { close(); }

void NetworkImages::close() {
  if (m_pipeline != nullptr) {
    // Waits for GStreamer's threads, so that no more images come.
    gst_element_set_state(m_pipeline, GST_STATE_NULL);
    gst_object_unref(m_pipeline);
    m_pipeline = nullptr;
  }
}

// On a GStreamer thread.
void NetworkImages::handOver(GstElement*, void* buffer, void* pad, void* self) {
  auto* const receiver = static_cast<NetworkImages*>(self);
  cv::Mat image = imageOf(static_cast<GstBuffer*>(buffer), static_cast<GstPad*>(pad));
  if (image.empty()) {
    return;
  }
  {
    const std::lock_guard lock(receiver->m_mutex);
    receiver->m_images.push_back(std::move(image));
    if (receiver->m_images.size() > mostWaiting) {
      receiver->m_images.pop_front();
      ++receiver->m_dropped;
    }
  }
  receiver->m_arrived.notify_one();
}

cv::Mat NetworkImages::next(std::chrono::milliseconds limit) {
  {
    std::unique_lock lock(m_mutex);
    if (m_arrived.wait_for(lock, limit, [this] { return !m_images.empty(); })) {
      cv::Mat image = std::move(m_images.front());
      m_images.pop_front();
      return image;
    }
  }
  checkPipeline();
  return {};
}

int NetworkImages::dropped() const {
  const std::lock_guard lock(m_mutex);
  return m_dropped;
}

void NetworkImages::checkPipeline() {
  GstBus* const bus = gst_element_get_bus(m_pipeline);
  GstMessage* const message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
  gst_object_unref(bus);
  if (message != nullptr) {
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    gst_message_unref(message);
    fail(textOf(error));
  }
}

}  // namespace stereo::app
