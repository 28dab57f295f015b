// SPDX-License-Identifier: Apache-2.0
#include "sources/ReplayCapture.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "sources/Recording.hpp"

namespace stereo::sources {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t maxDecodedBytes = std::size_t{256} << 20U;

/// Converts a decoder's output to 8-bit BGR; empty stays empty.
cv::Mat asBgr(const cv::Mat& frame) {
  cv::Mat bgr;
  if (frame.empty() || frame.type() == CV_8UC3) {
    return frame;
  }
  cv::Mat bytes = frame;
  if (frame.depth() == CV_16U) {
    frame.convertTo(bytes, CV_8U, 1.0 / 257.0);
  } else if (frame.depth() != CV_8U) {
    frame.convertTo(bytes, CV_8U);
  }
  switch (bytes.channels()) {
    case 1:
      cv::cvtColor(bytes, bgr, cv::COLOR_GRAY2BGR);
      return bgr;
    case 4:
      cv::cvtColor(bytes, bgr, cv::COLOR_BGRA2BGR);
      return bgr;
    case 3:
      return bytes;
    default:
      return {};
  }
}

std::vector<fs::path> imagesOf(const fs::path& path) {
  std::vector<fs::path> images;
  if (fs::is_directory(path)) {
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
      if (entry.is_regular_file() && cv::haveImageReader(entry.path().string())) {
        images.push_back(entry.path());
      }
    }
    std::sort(images.begin(), images.end());
  } else if (cv::haveImageReader(path.string())) {
    images.push_back(path);
  }
  return images;
}

std::optional<Recording> recordingAt(const std::string& path) {
  return Recording::isAt(path) ? std::optional(Recording::open(path)) : std::nullopt;
}

std::vector<std::int64_t> timestampsOf(const std::optional<Recording>& recording) {
  return recording ? recording->timestamps : std::vector<std::int64_t>();
}

// Mean frames per second of the timestamps; the requested rate if there are too few.
double rateOf(const ReplayCapture::Options& options, const std::vector<std::int64_t>& timestamps) {
  if (!options.recordedTiming || timestamps.size() < 2) {
    return options.rate;
  }
  return 1e6 * static_cast<double>(timestamps.size() - 1) / static_cast<double>(timestamps.back() - timestamps.front());
}

}  // namespace

ReplayCapture::ReplayCapture(const Options& options) : ReplayCapture(options, recordingAt(options.path)) {}

ReplayCapture::ReplayCapture(const Options& options, std::optional<Recording> recording)
    : FrameSource(rateOf(options, timestampsOf(recording))),
      m_path(recording ? recording->frames.string() : options.path),
      m_loop(options.loop),
      m_recording(std::move(recording)),
      m_timestamps(timestampsOf(m_recording)),
      m_recordedTiming(options.recordedTiming && m_timestamps.size() > 1),
      m_leadIn(std::max(options.leadIn, 0)) {
  try {
    if (!fs::exists(m_path)) {
      throw std::runtime_error("no such file or folder " + m_path);
    }
    m_images = imagesOf(m_path);
    if (m_images.empty() && fs::is_directory(m_path)) {
      throw std::runtime_error("no readable image in the folder " + m_path);
    }
  } catch (const fs::filesystem_error& error) {
    throw std::runtime_error("cannot read " + m_path + ": " + error.code().message());
  }
  m_decoded.resize(m_images.size());
  m_spoilt.resize(m_images.size());
  // The first frame is read here and kept, since its size must be known and a stream can be read only once.
  if (!m_images.empty()) {
    m_first = nextImage();
  } else if (!cv::haveImageWriter(m_path)) {
    // Not an image, nor named like one.
    openVideo();
    m_first = nextOfVideo();
  }
  if (m_first.empty()) {
    throw std::runtime_error("cannot decode an image or video from " + m_path);
  }
  m_firstFrameSize = m_frameSize = m_first.size();
}

cv::Mat ReplayCapture::next() {
  if (m_leadIn > 0) {
    --m_leadIn;
    m_recordedTimestamp = m_timestamps.empty() ? -1 : m_timestamps.front();
    return m_first;
  }
  cv::Mat frame;
  cv::swap(frame, m_first);
  if (frame.empty()) {
    frame = m_images.empty() ? nextOfVideo() : nextImage();
  }
  if (frame.empty()) {
    m_finished = !m_loop;
  } else {
    m_frameSize = frame.size();
    if (!m_timestamps.empty()) {
      m_recordedTimestamp = m_timestamps[m_frame];
      m_frame = (m_frame + 1) % m_timestamps.size();
    }
  }
  return frame;
}

bool ReplayCapture::set(int propId, double value) {
  return !(m_recordedTiming && propId == cv::CAP_PROP_FPS) && FrameSource::set(propId, value);
}

std::chrono::nanoseconds ReplayCapture::framePeriod() const {
  if (!m_recordedTiming) {
    return FrameSource::framePeriod();
  }
  const std::size_t frame = std::min(m_frame, m_timestamps.size() - 2);
  return std::chrono::microseconds(m_timestamps[frame + 1] - m_timestamps[frame]);
}

cv::Size ReplayCapture::frameSize() const { return m_frameSize; }

bool ReplayCapture::resize(int propId, double value) {
  return value == (propId == cv::CAP_PROP_FRAME_WIDTH ? m_frameSize.width : m_frameSize.height);
}

cv::Mat ReplayCapture::nextImage() {
  // Each at most once, since all files may have become unreadable meanwhile.
  for (std::size_t tries = 0; tries < m_images.size(); ++tries) {
    if (m_index == m_images.size()) {
      if (!m_loop) {
        break;
      }
      m_index = 0;
    }
    const std::size_t index = m_index++;
    cv::Mat frame = image(index);
    if (!frame.empty()) {
      return frame;
    }
    if (m_spoilt[index] == 0) {
      m_spoilt[index] = 1;
      ++m_skipped;
    }
  }
  return {};
}

cv::Mat ReplayCapture::nextOfVideo() {
  cv::Mat frame;
  // A recording's frames without timestamp are not played.
  const bool atEnd = !m_timestamps.empty() && m_videoFrames == m_timestamps.size();
  if (atEnd || !m_video.read(frame)) {
    if (m_videoFrames < m_timestamps.size()) {
      m_skipped = std::max<std::uint64_t>(m_skipped, m_timestamps.size() - m_videoFrames);
    }
    // Opened again, since not every container can be rewound.
    if (m_loop && openVideo()) {
      m_video.read(frame);
    }
  }
  ++m_videoFrames;
  return asBgr(frame);
}

cv::Mat ReplayCapture::image(std::size_t index) {
  if (m_decoded[index].empty()) {
    cv::Mat frame = asBgr(cv::imread(m_images[index].string(), cv::IMREAD_COLOR));
    const std::size_t bytes = frame.total() * frame.elemSize();
    if (m_decodedBytes + bytes > maxDecodedBytes) {
      return frame;
    }
    m_decodedBytes += bytes;
    m_decoded[index] = frame;
  }
  return m_decoded[index];
}

bool ReplayCapture::openVideo() {
  m_videoFrames = 0;
  m_frame = 0;
  return m_video.open(m_path);
}

}  // namespace stereo::sources
