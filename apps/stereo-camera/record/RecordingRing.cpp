// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/record/RecordingRing.hpp"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "apps/stereo-camera/output/Output.hpp"

namespace stereo::app {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view partPrefix = "part-";
constexpr std::chrono::seconds retryTime{5};
constexpr std::chrono::milliseconds measurePeriod{500};

struct Part {
  fs::path folder;
  std::uintmax_t bytes = 0;
};

// Complete and incomplete parts that a ring made, the oldest first. Their names sort by time.
std::vector<Part> partsIn(const fs::path& folder) {
  std::vector<Part> parts;
  std::error_code failure;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, failure)) {
    const std::string name = entry.path().filename().string();
    std::error_code ignored;
    if (name.rfind(partPrefix, 0) != 0 || !entry.is_directory(ignored) || entry.is_symlink(ignored)) {
      continue;
    }
    Part part{entry.path(), 0};
    for (const char* const file : sources::Recording::files) {
      const std::uintmax_t size = fs::file_size(entry.path() / file, ignored);
      part.bytes += ignored ? 0 : size;
    }
    parts.push_back(std::move(part));
  }
  std::sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) { return a.folder < b.folder; });
  return parts;
}

// Removes a recording's files, and the folder if nothing else is in it.
void removePart(const fs::path& folder) {
  std::error_code ignored;
  for (const char* const file : sources::Recording::files) {
    fs::remove(folder / file, ignored);
  }
  fs::remove(folder, ignored);
}

}  // namespace

RecordingRing::RecordingRing(Options options) : m_options(std::move(options)) {}

void RecordingRing::step(const RecordedCamera* camera, LiveTap& tap) {
  const Clock::time_point now = Clock::now();
  try {
    if (m_part != nullptr) {
      m_part->check();
      const bool isOver = now >= m_began + std::chrono::duration<double>(m_options.partSeconds) ||
                          m_part->bytes() >= m_options.mostBytes;
      if (camera == nullptr) {
        end();
      } else if (isOver) {
        // The next part begins before this one is written to its end, so that no frame falls between them.
        m_past = std::move(m_part);
        begin(*camera, tap);
        std::exchange(m_past, nullptr)->finish();
        trim();  // what waited in its queue is on the disk now
      }
    }
    if (now >= m_measured + measurePeriod || status().bytes + reserve() > m_options.mostBytes) {
      m_measured = now;
      trim();
    }
    if (m_part == nullptr && camera != nullptr && now >= m_retry) {
      begin(*camera, tap);
    }
  } catch (const std::exception& error) {
    fail(error.what());
  }
}

void RecordingRing::end() {
  if (const std::unique_ptr<LiveRecording> part = std::exchange(m_part, nullptr)) {
    part->finish();
    trim();
  }
}

void RecordingRing::begin(const RecordedCamera& camera, LiveTap& tap) {
  makeFolder(m_options.folder);
  trim();
  sources::Recorder::Options options = m_options.recorder;
  options.folder = m_options.folder / (std::string(partPrefix) + timeName());
  m_part = std::make_unique<LiveRecording>(options, camera, tap);
  m_began = Clock::now();
  m_error.clear();
}

// Room that is kept in the ring, and on the disk, for what is written until the next look.
std::uintmax_t RecordingRing::reserve() const { return std::min<std::uintmax_t>(m_options.mostBytes / 20, 64'000'000); }

// Makes room for the part that is written: removes the oldest complete ones while all are larger than the ring, or the
// disk has little room (a twentieth of the ring, at most 64 MB) above what is kept free.
void RecordingRing::trim() {
  std::vector<Part> parts = partsIn(m_options.folder);
  std::uintmax_t current = 0;
  for (const LiveRecording* const open : {m_part.get(), m_past.get()}) {
    if (open != nullptr) {
      current += open->bytes();
      std::erase_if(parts, [open](const Part& each) { return each.folder == open->folder(); });
    }
  }
  std::uintmax_t past = 0;
  for (const Part& each : parts) {
    past += each.bytes;
  }
  for (const Part& each : parts) {
    std::error_code failure;
    const fs::space_info space = fs::space(m_options.folder, failure);
    const bool isFull = !failure && space.available < m_options.recorder.spare + reserve();
    if (past + current + reserve() <= m_options.mostBytes && !isFull) {
      break;
    }
    removePart(each.folder);
    past -= each.bytes;
  }
  m_pastBytes = past;
}

void RecordingRing::fail(const std::string& reason) {
  m_error = reason;
  m_retry = Clock::now() + retryTime;
  m_part.reset();
  m_past.reset();
}

RecordingRing::Status RecordingRing::status() const {
  return {.isRecording = m_part != nullptr,
          .bytes = m_pastBytes + (m_part == nullptr ? 0 : m_part->bytes()),
          .error = m_error};
}

}  // namespace stereo::app
