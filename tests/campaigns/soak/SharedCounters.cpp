// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/SharedCounters.hpp"

#include <new>
#include <stdexcept>
#include <utility>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stereo::soak {

namespace {

constexpr std::size_t headerBytes = 4096;

std::size_t eyeBytes(bool fullSize) { return static_cast<std::size_t>(SharedCounters::eyeSize(fullSize).area()) * 3; }

std::size_t bytesFor(int pictures) {
  return headerBytes + static_cast<std::size_t>(pictures) * (eyeBytes(true) + eyeBytes(false));
}

// The taking process gets the descriptor by number, so it is not closed when a program is started.
int makeMemory(int pictures) {
  const int descriptor = memfd_create("soak", 0);
  if (descriptor < 0 || ftruncate(descriptor, static_cast<off_t>(bytesFor(pictures))) != 0) {
    throw std::runtime_error("no memory to share");
  }
  return descriptor;
}

int picturesIn(int descriptor) {
  struct stat about {};
  if (fstat(descriptor, &about) != 0 || static_cast<std::size_t>(about.st_size) < bytesFor(1)) {
    throw std::runtime_error("not the descriptor of shared memory");
  }
  return static_cast<int>((static_cast<std::size_t>(about.st_size) - headerBytes) / (eyeBytes(true) + eyeBytes(false)));
}

}  // namespace

SharedCounters::SharedCounters(int pictures) : SharedCounters(makeMemory(pictures), pictures) {
  new (m_memory) Counters;
}

SharedCounters SharedCounters::open(int descriptor) { return {descriptor, picturesIn(descriptor)}; }

SharedCounters::SharedCounters(int descriptor, int pictures)
    : m_descriptor(descriptor), m_pictures(pictures), m_bytes(bytesFor(pictures)) {
  m_memory = mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (m_memory == MAP_FAILED) {  // NOLINT(performance-no-int-to-ptr): the system's own failure value
    throw std::runtime_error("cannot map the shared memory");
  }
}

SharedCounters::SharedCounters(SharedCounters&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)),
      m_pictures(other.m_pictures),
      m_bytes(other.m_bytes),
      m_memory(std::exchange(other.m_memory, nullptr)) {}

SharedCounters::~SharedCounters() {
  if (m_memory != nullptr) {
    munmap(m_memory, m_bytes);
    close(m_descriptor);
  }
}

cv::Mat SharedCounters::leftEye(bool fullSize, int picture) const {
  const auto index = static_cast<std::size_t>(picture);
  const std::size_t offset =
      headerBytes + (fullSize ? index * eyeBytes(true)
                              : static_cast<std::size_t>(m_pictures) * eyeBytes(true) + index * eyeBytes(false));
  return {eyeSize(fullSize), CV_8UC3, static_cast<std::uint8_t*>(m_memory) + offset};
}

}  // namespace stereo::soak
