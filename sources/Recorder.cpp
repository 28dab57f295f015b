// SPDX-License-Identifier: Apache-2.0
#include "sources/Recorder.hpp"

#include <utility>

namespace stereo::sources {

namespace {

namespace fs = std::filesystem;

RecordingError cannotWrite(const fs::path& path, const std::string& reason) {
  return RecordingError("cannot write " + path.string() + ": " + reason);
}

// Both keep blue, green and red to the bit with OpenCV's writer. HuffYUV is several times as fast; FFV1's files are
// about two thirds as large.
int fourccOf(const std::string& codec) {
  return codec == "ffv1" ? cv::VideoWriter::fourcc('F', 'F', 'V', '1') : cv::VideoWriter::fourcc('H', 'F', 'Y', 'U');
}

}  // namespace

Recorder::Recorder(Options options) : m_options(std::move(options)) {
  if (Recording::isAt(m_options.folder)) {
    throw RecordingError("there is already a recording in " + m_options.folder.string() +
                         ": choose another folder (--output), or remove it");
  }
  for (const char* name : Recording::files) {
    std::error_code ignored;
    if (fs::exists(m_options.folder / name, ignored)) {
      throw RecordingError("there is a " + std::string(name) + " in " + m_options.folder.string() +
                           " that a recording would replace: choose another folder (--output)");
    }
  }
  requireRoom();
  const fs::path timestamps = m_options.folder / Recording::timestampsFile;
  m_timestamps.open(timestamps, std::ios::trunc);
  m_timestamps << Recording::timestampsHeading << std::endl;
  if (!m_timestamps) {
    std::error_code ignored;
    fs::remove(timestamps, ignored);
    throw cannotWrite(timestamps, "does the folder exist, and may you write to it?");
  }
  m_thread = std::thread([this] { loop(); });
}

Recorder::~Recorder() {
  try {
    finish();
  } catch (const std::exception&) {
    // Callers who need errors call `finish` themselves.
  }
  if (!Recording::isAt(m_options.folder)) {
    std::error_code ignored;
    fs::remove(m_options.folder / Recording::timestampsFile, ignored);
  }
}

void Recorder::read(const cv::Mat& frame) {
  m_hasCandidate = true;
  {
    const std::lock_guard lock(m_mutex);
    if (m_candidate.empty() && !m_free.empty()) {
      m_candidate = std::move(m_free.back());
      m_free.pop_back();
    } else if (m_candidate.empty() && m_buffers < m_options.queue) {
      ++m_buffers;
      m_candidate.create(frame.size(), frame.type());
    }
  }
  if (!m_candidate.empty()) {
    frame.copyTo(m_candidate);
  }
}

void Recorder::published(std::chrono::microseconds timestamp) {
  if (timestamp.count() == m_newestTimestamp) {
    return;  // the frame read was discarded; the next one reuses the memory of its copy
  }
  m_newestTimestamp = timestamp.count();
  if (!std::exchange(m_hasCandidate, false)) {
    return;
  }
  {
    const std::lock_guard lock(m_mutex);
    if (m_options.most > 0 && m_taken == m_options.most) {
      return;
    }
    if (m_candidate.empty()) {
      ++m_counts.dropped;
      return;
    }
    if (m_frameType < 0) {
      m_frameSize = m_candidate.size();
      m_frameType = m_candidate.type();
    }
    if (m_candidate.size() != m_frameSize || m_candidate.type() != m_frameType) {
      ++m_counts.unfit;
      m_free.push_back(std::exchange(m_candidate, cv::Mat()));
      return;
    }
    ++m_taken;
    m_queue.emplace_back(std::exchange(m_candidate, cv::Mat()), m_newestTimestamp);
  }
  m_queued.notify_one();
}

bool Recorder::awaitFrame(const Counts& counts, std::chrono::milliseconds limit) {
  std::unique_lock lock(m_mutex);
  m_progress.wait_for(lock, limit, [&] { return m_counts.written > counts.written || m_failure; });
  if (m_failure) {
    std::rethrow_exception(m_failure);
  }
  return m_counts.written > counts.written;
}

Recorder::Counts Recorder::counts() const {
  const std::lock_guard lock(m_mutex);
  return m_counts;
}

cv::Size Recorder::frameSize() const {
  const std::lock_guard lock(m_mutex);
  return m_frameSize;
}

void Recorder::finish() {
  {
    const std::lock_guard lock(m_mutex);
    m_ending = true;
  }
  m_queued.notify_one();
  if (m_thread.joinable()) {
    m_thread.join();
  }
  if (const std::exception_ptr failure = std::exchange(m_failure, nullptr)) {
    std::rethrow_exception(failure);
  }
}

std::uintmax_t Recorder::bytes() const {
  std::error_code failure;
  const std::uintmax_t size = fs::file_size(m_options.folder / Recording::framesFile, failure);
  return failure ? 0 : size;
}

// OpenCV's writer does not report a full disk, so recording ends before that.
void Recorder::requireRoom() const {
  std::error_code failure;
  const fs::space_info space = fs::space(m_options.folder, failure);
  if (!failure && space.available < m_options.spare) {
    throw cannotWrite(m_options.folder, "the disk is full: " + std::to_string(space.available / 1'000'000) +
                                            " MB are free, and " + std::to_string(m_options.spare / 1'000'000) +
                                            " MB are kept free (--keep-free)");
  }
}

void Recorder::loop() {
  std::unique_lock lock(m_mutex);
  try {
    while (true) {
      m_queued.wait(lock, [this] { return m_ending || !m_queue.empty(); });
      if (m_queue.empty()) {
        break;
      }
      Entry entry = std::move(m_queue.front());
      m_queue.pop_front();
      lock.unlock();
      write(entry);
      lock.lock();
      ++m_counts.written;
      m_free.push_back(std::move(entry.first));
      m_progress.notify_all();
    }
    lock.unlock();
    close();
  } catch (...) {
    if (!lock.owns_lock()) {
      lock.lock();
    }
    m_failure = std::current_exception();
    m_queue.clear();  // without returning buffers, so further frames count as dropped
    m_progress.notify_all();
  }
}

void Recorder::open(const cv::Mat& frame) {
  const fs::path path = m_options.folder / Recording::framesFile;
  if (frame.type() != CV_8UC3 || frame.cols % 2 != 0 || frame.rows % 2 != 0) {
    throw cannotWrite(path, "frames must be 8-bit BGR and of even width and height; these are " +
                                std::to_string(frame.cols) + "x" + std::to_string(frame.rows) + ", " +
                                cv::typeToString(frame.type()));
  }
  if (!m_video.open(path.string(), cv::CAP_FFMPEG, fourccOf(m_options.codec), m_options.rate, frame.size(), true)) {
    throw cannotWrite(path, "OpenCV has no writer for " + m_options.codec + " in Matroska here");
  }
}

void Recorder::write(const Entry& entry) {
  const auto& [frame, timestamp] = entry;
  requireRoom();
  if (!m_video.isOpened()) {
    open(frame);
  }
  m_video.write(frame);
  // A whole line at once, after its frame: a recording that is cut off has no timestamp without a frame.
  m_timestamps << std::to_string(m_counts.written) + "," + std::to_string(timestamp) + "\n" << std::flush;
  if (!m_timestamps) {
    throw cannotWrite(m_options.folder / Recording::timestampsFile, "the disk is full, or gone");
  }
}

void Recorder::close() {
  if (!m_video.isOpened()) {
    return;
  }
  m_video.release();
  // The container's count is computed from its length in milliseconds, so it is accurate to a thousandth; a container
  // that could not be closed has none.
  const fs::path path = m_options.folder / Recording::framesFile;
  const cv::VideoCapture video(path.string(), cv::CAP_FFMPEG);
  const auto count = static_cast<std::int64_t>(video.get(cv::CAP_PROP_FRAME_COUNT));
  const auto written = static_cast<std::int64_t>(m_counts.written);
  if (count < written - 1 - written / 1000) {
    throw cannotWrite(path, "it holds " + std::to_string(count) + " of " + std::to_string(written) + " frames");
  }
}

}  // namespace stereo::sources
