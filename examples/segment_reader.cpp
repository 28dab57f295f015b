// SPDX-License-Identifier: Apache-2.0
// Reads images of the left eye from the shared memory of a running camera and writes them as PNG files.
//
//   segment_reader KEY WIDTH HEIGHT COUNT PREFIX
//
// KEY is 9000 + position of the camera, WIDTH x HEIGHT the size of one eye (928 x 800 or 464 x 400 pixels). Writes
// PREFIX0.png, PREFIX1.png, ... For instance, next to `stereo-camera share`:
//
//   segment_reader 9000 928 800 5 left-
//
// Needs OpenCV (Debian: libopencv-dev) and a camera that shares its left eye. Not part of the library.
//
// The segment begins with a status word, followed by the pixels (blue, green, red) row by row without gaps. When the
// word is 0, the camera stores 2 and then copies an image; the reader reads the image and stores 0, which requests the
// next one. There can be only one reader: two would release the segment during each other's reads.
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

#include <sys/shm.h>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int32_t unused = 0;
constexpr std::int32_t written = 2;
constexpr std::size_t headerBytes = sizeof(std::int32_t);

constexpr std::chrono::seconds patience(10);    // for the camera to start, and for each image
constexpr std::chrono::milliseconds poll(1);    // between checks of the status word
constexpr std::chrono::milliseconds settle(5);  // several times as long as copying an image

// A mapped segment, unmapped on destruction. The segment itself belongs to the camera, which removes it.
class Segment {
public:
  Segment(key_t key, std::size_t bytes) {
    const int id = find(key);
    shmid_ds about{};
    if (shmctl(id, IPC_STAT, &about) != 0 || about.shm_segsz < bytes) {
      throw std::runtime_error("the segment holds " + std::to_string(about.shm_segsz) + " bytes, not " +
                               std::to_string(bytes) + ": is the size that of one eye?");
    }
    // Writable, to reset the status word.
    m_address = shmat(id, nullptr, 0);
    if (m_address ==
        reinterpret_cast<void*>(-1)) {  // NOLINT(performance-no-int-to-ptr): the system's own failure value
      throw std::runtime_error(std::string("cannot map the segment: ") + std::strerror(errno));
    }
  }
  ~Segment() { shmdt(m_address); }
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  // Atomic, since the camera's process writes the word at any time. Acquire: pixels are read after the mark is seen.
  // Release: the word is reset after the pixels are read.
  std::int32_t status() const { return __atomic_load_n(word(), __ATOMIC_ACQUIRE); }
  void setFree() { __atomic_store_n(word(), unused, __ATOMIC_RELEASE); }

  // A copy of the segment's current pixels.
  cv::Mat copyPixels(cv::Size size) const {
    return cv::Mat(size, CV_8UC3, static_cast<std::uint8_t*>(m_address) + headerBytes).clone();
  }

private:
  static int find(key_t key) {
    const auto end = Clock::now() + patience;
    int id = shmget(key, 0, 0);
    while (id == -1) {
      if (Clock::now() > end) {
        throw std::runtime_error("no segment with the key " + std::to_string(key) +
                                 ": does the camera run, with shared memory, at this position?");
      }
      std::this_thread::sleep_for(poll);
      id = shmget(key, 0, 0);
    }
    return id;
  }

  std::int32_t* word() const { return static_cast<std::int32_t*>(m_address); }

  void* m_address;
};

// Waits for the mark, reads the image and requests the next one.
cv::Mat takeImage(Segment& segment, cv::Size size) {
  const auto end = Clock::now() + patience;
  while (segment.status() != written) {
    if (Clock::now() > end) {
      throw std::runtime_error("no image for " + std::to_string(patience.count()) +
                               " s: the camera was stopped, or delivers no frames");
    }
    std::this_thread::sleep_for(poll);
  }
  // The mark is set before the pixels are copied, so they may still be the previous image's, or half of each. The
  // camera does not touch a marked image afterward, so the image is complete once it has stopped changing. (A camera
  // process that is delayed during its copy for longer than the two pauses goes unnoticed.)
  std::this_thread::sleep_for(settle);
  cv::Mat image = segment.copyPixels(size);
  for (;;) {
    std::this_thread::sleep_for(settle);
    const cv::Mat again = segment.copyPixels(size);
    if (std::memcmp(again.data, image.data, image.total() * image.elemSize()) == 0) {
      break;
    }
    if (Clock::now() > end) {
      throw std::runtime_error("the image keeps changing: does another program also read this segment?");
    }
    image = again;
  }
  segment.setFree();
  return image;
}

int number(const char* text, int least, int most) {
  try {
    std::size_t used = 0;
    const int value = std::stoi(text, &used);
    if (used == std::strlen(text) && value >= least && value <= most) {
      return value;
    }
  } catch (const std::logic_error&) {
    // reported below
  }
  throw std::runtime_error(std::string("'") + text + "' is not a number from " + std::to_string(least) + " to " +
                           std::to_string(most));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::cerr << "usage: segment_reader KEY WIDTH HEIGHT COUNT PREFIX" << std::endl;
    return 2;
  }
  try {
    const key_t key = number(argv[1], 1, INT32_MAX);
    const cv::Size size(number(argv[2], 1, 32767), number(argv[3], 1, 32767));
    const int count = number(argv[4], 1, INT32_MAX);
    Segment segment(key, static_cast<std::size_t>(size.area()) * 3 + headerBytes);
    for (int i = 0; i < count; ++i) {
      const std::string path = argv[5] + std::to_string(i) + ".png";
      if (!cv::imwrite(path, takeImage(segment, size))) {
        throw std::runtime_error("cannot write '" + path + "'");
      }
      std::cout << path << std::endl;
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "segment_reader: " << error.what() << std::endl;
    return 1;
  }
}
