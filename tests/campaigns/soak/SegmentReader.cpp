// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/SegmentReader.hpp"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>

#include <sys/shm.h>

#include "tests/campaigns/soak/Numbering.hpp"

namespace stereo::soak {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int32_t unused = 0;
constexpr std::int32_t written = 2;
constexpr std::size_t statusBytes = sizeof(std::int32_t);
constexpr std::chrono::microseconds handshakePoll(300);  // the handshake has nothing to wait on

class SegmentReader {
public:
  SegmentReader(const SharedCounters& shared, const std::function<bool()>& isWanted, int id, bool fullSize,
                std::uint8_t* segment)
      : m_shared(shared),
        m_isWanted(isWanted),
        m_id(id),
        m_fullSize(fullSize),
        m_segment(segment),
        m_image(SharedCounters::eyeSize(fullSize), CV_8UC3) {}

  /// Nothing if the segment was removed, or is no longer wanted. Otherwise what is wrong.
  std::optional<std::string> run() {
    bool found = true;  // rather than waited for
    auto whole = Clock::now();
    while (m_isWanted() && !removed()) {
      const std::int32_t word = status().load();
      if (word != unused && word != written) {
        return "status word " + std::to_string(word);
      }
      if (word == unused) {
        found = false;
        whole = Clock::now();
        std::this_thread::sleep_for(handshakePoll);
        continue;
      }
      // The mark comes before the pixels: what is there may be the image before still, or part of each.
      const std::string difference = copyImage();
      SharedCounters::Counters& counters = m_shared.counters();
      const std::uint32_t number = numberIn(m_image, 0);
      const std::uint32_t last = counters.last;
      if (difference.empty() && (number != last || found)) {
        if (number < last || number > counters.newest) {
          return "frame " + std::to_string(number) + " after frame " + std::to_string(last) + ", the newest being " +
                 std::to_string(counters.newest);
        }
        ++(number == last ? counters.again : counters.taken);
        counters.last = number;
        status().store(unused);
        // A mark may be set before the next look, and the pixels still be this image's: whole, but not free.
        found = false;
        whole = Clock::now();
      } else if (Clock::now() > whole + std::chrono::milliseconds(counters.patience)) {
        return difference.empty() ? "marked, but the image stays the same" : difference;
      } else {
        std::this_thread::sleep_for(handshakePoll);
      }
    }
    return std::nullopt;
  }

private:
  std::atomic_ref<std::int32_t> status() const {
    return std::atomic_ref<std::int32_t>(*reinterpret_cast<std::int32_t*>(m_segment));
  }

  std::string copyImage() {
    cv::Mat(m_image.size(), CV_8UC3, m_segment + statusBytes).copyTo(m_image);
    const std::uint32_t number = numberIn(m_image, 0);
    const int picture = static_cast<int>(number % static_cast<std::uint32_t>(m_shared.pictures()));
    return differenceOfEye(m_shared.leftEye(m_fullSize, picture), number, m_image);
  }

  // An image that came before the removal is left: the next camera's are as good.
  bool removed() const {
    shmid_ds about{};
    return shmctl(m_id, IPC_STAT, &about) != 0 || (about.shm_perm.mode & SHM_DEST) != 0;
  }

  const SharedCounters& m_shared;
  const std::function<bool()>& m_isWanted;
  const int m_id;
  const bool m_fullSize;
  std::uint8_t* const m_segment;
  cv::Mat m_image;
};

std::size_t segmentBytes(bool fullSize) {
  return static_cast<std::size_t>(SharedCounters::eyeSize(fullSize).area()) * 3 + statusBytes;
}

// Nothing if the segment went, or went before it could be mapped.
std::optional<std::string> takeFrom(const SharedCounters& shared, const std::function<bool()>& isWanted, int id) {
  shmid_ds about{};
  if (shmctl(id, IPC_STAT, &about) != 0) {
    return std::nullopt;
  }
  const bool fullSize = about.shm_segsz == segmentBytes(true);
  if (!fullSize && about.shm_segsz != segmentBytes(false)) {
    return "a segment of " + std::to_string(about.shm_segsz) + " bytes";
  }
  void* const address = shmat(id, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) {  // NOLINT(performance-no-int-to-ptr): the system's own failure value
    return std::nullopt;
  }
  ++shared.counters().attached;
  SegmentReader taker(shared, isWanted, id, fullSize, static_cast<std::uint8_t*>(address));
  std::optional<std::string> fault = taker.run();
  shmdt(address);
  return fault;
}

}  // namespace

void takeImages(const SharedCounters& shared, int key, const std::function<bool()>& isWanted) {
  while (isWanted()) {
    const int id = shmget(key, 0, 0);
    const std::optional<std::string> fault = id == -1 ? std::nullopt : takeFrom(shared, isWanted, id);
    if (fault) {
      auto& failure = shared.counters().failure;
      std::snprintf(failure.data(), failure.size(), "%s", fault->c_str());
      return;
    }
    std::this_thread::sleep_for(handshakePoll);
  }
}

}  // namespace stereo::soak
