// SPDX-License-Identifier: Apache-2.0
// Plays the camera on a loopback video device: numbered frames at a steady rate, until it is killed.
//
//   device_feeder DEVICE WIDTHxHEIGHT RATE [--stall N] [--stop N]
//
// --stall: after N frames the device stays open and nothing more comes. --stop: after N frames the device is closed and
// the program ends with 0. Says "feeding" on standard output once the first frame is in the device.
//
// The frames go in through mapped buffers: after plain writes the module leaves the device unusable once it is closed.
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/campaigns/device/Pattern.hpp"

namespace {

using stereo::test::Pattern;

constexpr std::size_t bufferCount = 16;  // so that a slow reader is not overtaken: nothing guards a buffer

struct Options {
  std::string device;
  cv::Size size;
  double rate = 0;
  long stall = -1;
  long stop = -1;
};

Options parse(int argc, char** argv) {
  Options options;
  // NOLINTNEXTLINE(cert-err34-c): started by tests and scripts, with sizes of their own
  if (argc < 4 || std::sscanf(argv[2], "%dx%d", &options.size.width, &options.size.height) != 2) {
    throw std::runtime_error("wants DEVICE WIDTHxHEIGHT RATE [--stall N] [--stop N]");
  }
  options.device = argv[1];
  options.rate = std::strtod(argv[3], nullptr);
  for (int i = 4; i + 1 < argc; i += 2) {
    const std::string name = argv[i];
    if (name != "--stall" && name != "--stop") {
      throw std::runtime_error("does not know " + name);
    }
    (name == "--stall" ? options.stall : options.stop) = std::strtol(argv[i + 1], nullptr, 10);
  }
  if (options.rate <= 0 || options.size.empty()) {
    throw std::runtime_error("wants a size and a rate above 0");
  }
  return options;
}

/// The sending side of the device. Not copied, closes itself.
class Device {
public:
  explicit Device(const Options& options) : m_file(open(options.device.c_str(), O_RDWR | O_CLOEXEC)) {
    if (m_file < 0) {
      throw std::runtime_error("cannot open " + options.device + ": " + std::strerror(errno));
    }
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    format.fmt.pix.width = static_cast<unsigned>(options.size.width);
    format.fmt.pix.height = static_cast<unsigned>(options.size.height);
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    format.fmt.pix.field = V4L2_FIELD_NONE;
    format.fmt.pix.bytesperline = format.fmt.pix.width * 2;
    format.fmt.pix.sizeimage = format.fmt.pix.bytesperline * format.fmt.pix.height;
    format.fmt.pix.colorspace = V4L2_COLORSPACE_SRGB;
    control(VIDIOC_S_FMT, &format, "format");
    if (static_cast<int>(format.fmt.pix.width) != options.size.width ||
        static_cast<int>(format.fmt.pix.height) != options.size.height) {
      throw std::runtime_error("the device keeps another size: somebody holds it open");
    }
    v4l2_streamparm rate{};
    rate.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    rate.parm.output.timeperframe = {1000, static_cast<unsigned>(options.rate * 1000)};
    control(VIDIOC_S_PARM, &rate, "rate");
    v4l2_requestbuffers request{};
    request.count = static_cast<unsigned>(m_buffers.size());
    request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    request.memory = V4L2_MEMORY_MMAP;
    control(VIDIOC_REQBUFS, &request, "buffers");
    m_count = std::min<unsigned>(request.count, static_cast<unsigned>(m_buffers.size()));
    for (unsigned i = 0; i < m_count; ++i) {
      v4l2_buffer about = buffer(i);
      control(VIDIOC_QUERYBUF, &about, "a buffer");
      void* const memory = mmap(nullptr, about.length, PROT_READ | PROT_WRITE, MAP_SHARED, m_file, about.m.offset);
      if (memory == MAP_FAILED) {
        throw std::runtime_error(std::string("cannot map a buffer: ") + std::strerror(errno));
      }
      m_buffers[i] = static_cast<std::uint8_t*>(memory);
      m_lengths[i] = about.length;
    }
    int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    control(VIDIOC_STREAMON, &type, "start");
  }
  ~Device() {
    int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    ioctl(m_file, VIDIOC_STREAMOFF, &type);
    for (unsigned i = 0; i < m_count; ++i) {
      munmap(m_buffers[i], m_lengths[i]);
    }
    close(m_file);
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  /// Puts one frame in: `pixels` with the number over it.
  void send(const Pattern& pattern, const std::vector<std::uint8_t>& pixels, unsigned number) {
    unsigned index = number % m_count;
    if (number >= m_count) {
      v4l2_buffer free = buffer(0);
      control(VIDIOC_DQBUF, &free, "a free buffer");
      index = free.index;
    }
    std::memcpy(m_buffers[index], pixels.data(), pixels.size());
    pattern.timestamp(m_buffers[index], number);
    v4l2_buffer full = buffer(index);
    full.bytesused = static_cast<unsigned>(pixels.size());
    full.field = V4L2_FIELD_NONE;
    control(VIDIOC_QBUF, &full, "a full buffer");
  }

private:
  static v4l2_buffer buffer(unsigned index) {
    v4l2_buffer result{};
    result.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    result.memory = V4L2_MEMORY_MMAP;
    result.index = index;
    return result;
  }

  void control(unsigned long request, void* argument, const char* what) const {
    while (ioctl(m_file, request, argument) != 0) {
      if (errno != EINTR) {
        throw std::runtime_error(std::string("the device refuses ") + what + ": " + std::strerror(errno));
      }
    }
  }

  int m_file;
  unsigned m_count = 0;
  std::array<std::uint8_t*, bufferCount> m_buffers{};
  std::array<std::size_t, bufferCount> m_lengths{};
};

void feed(const Options& options) {
  const Pattern pattern(options.size);
  const std::vector<std::uint8_t> pixels = pattern.background();
  Device device(options);
  timespec next{};
  clock_gettime(CLOCK_MONOTONIC, &next);
  for (unsigned number = 0;; ++number) {
    if (number == options.stop) {
      return;
    }
    while (number == options.stall) {
      pause();
    }
    device.send(pattern, pixels, number);
    if (number == 0) {
      std::puts("feeding");
      std::fflush(stdout);
    }
    next.tv_nsec += static_cast<long>(1e9 / options.rate);
    next.tv_sec += next.tv_nsec / 1'000'000'000;
    next.tv_nsec %= 1'000'000'000;
    // After a pause no burst makes up for it: it would overrun the buffers, and no camera does so.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (now.tv_sec > next.tv_sec || (now.tv_sec == next.tv_sec && now.tv_nsec > next.tv_nsec)) {
      next = now;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    feed(parse(argc, argv));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "device_feeder: %s\n", error.what());
    return 1;
  }
}
