// SPDX-License-Identifier: Apache-2.0
#include "DeviceChecks.hpp"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <vector>

#include <opencv2/videoio.hpp>

#include "DeviceOffers.hpp"

extern char** environ;

namespace stereo::app {

namespace {

constexpr std::chrono::seconds patience{20};       // with a back end that may block for ever; slow boards take five
constexpr std::chrono::seconds startPatience{60};  // with a process that loads its libraries, from a slow card perhaps
const std::string began = "began\n";               // the probe's first words: from here on the device has its time

class Descriptor {
public:
  explicit Descriptor(int number) : m_number(number) {}
  ~Descriptor() {
    if (m_number >= 0) {
      close(m_number);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  operator int() const { return m_number; }

private:
  int m_number;
};

// What the driver offers of the size and rate that are wanted.
void checkOffers(Findings& findings, int device, cv::Size size, double rate) {
  const DeviceOffers offers = offersOf(device, size);
  if (!offers.tellsSizes()) {
    add(findings, "device: tells no sizes; what it delivers is below", "");
    return;
  }
  if (offers.formats.empty()) {
    add(findings, "device: " + textOf(size) + " is not on offer", "it offers " + sizesText(offers));
    return;
  }
  std::string formats;
  for (const std::string& format : offers.formats) {
    formats += " " + format;
  }
  add(findings, "device: " + textOf(size) + " on offer as" + formats, "");
  if (offers.tellsRates()) {
    add(findings, "device: " + ratesText(offers) + " frames a second at that size",
        offers.hasRate(rate) ? "" : "ask for one of these (--rate, or \"FrameRate\" in the settings)");
  }
}

// Output of this program as another process, asked to probe, as far as it came in time: its first words, then an answer
// unless the device keeps it waiting.
std::string probeElsewhere(int node, const std::string& backEnd, cv::Size size, double rate) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return "fails no pipe can be had";
  }
  const Descriptor reading(ends[0]);
  std::vector<std::string> words = {"stereo-camera", "doctor",
                                    "--device",      std::to_string(node),
                                    "--size",        std::to_string(size.width) + "x" + std::to_string(size.height),
                                    "--rate",        textOf(rate),
                                    "--probe",       backEnd};
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int failure = posix_spawn(&child, "/proc/self/exe", &files, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  close(ends[1]);
  if (failure != 0) {
    return "fails no process can be had";
  }
  std::string output;
  bool isProbing = false;
  auto end = std::chrono::steady_clock::now() + startPatience;
  char piece[256];
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    pollfd wait{reading, POLLIN, 0};
    if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) <= 0) {
      break;
    }
    const ssize_t count = read(reading, piece, sizeof piece);
    if (count <= 0) {
      if (output == began) {
        output += "fails its process ended without an answer\n";
      }
      break;
    }
    output.append(piece, static_cast<std::size_t>(count));
    if (!isProbing && output.rfind(began, 0) == 0) {
      isProbing = true;
      end = std::chrono::steady_clock::now() + patience;
    }
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return output;
}

void checkBackEnd(Findings& findings, int node, const std::string& backEnd, cv::Size size, double rate) {
  const std::string said = probeElsewhere(node, backEnd, size, rate);
  const std::string head = "device: through " + backEnd + " ";
  const std::size_t at = said.find("frame ");
  cv::Size delivered;
  double told = 0;
  if (at != std::string::npos &&
      std::sscanf(said.c_str() + at, "frame %dx%d %lf", &delivered.width, &delivered.height, &told) == 3) {
    const bool well = delivered == size;
    add(findings, head + textOf(delivered) + " at " + textOf(told) + " frames a second",
        well ? "" : "asked for " + textOf(size) + ": give --size, or \"FrameSize\" in the settings, what it delivers");
    return;
  }
  const std::size_t reason = said.find("fails ");
  if (reason != std::string::npos) {
    add(findings, head + said.substr(reason + 6, said.find('\n', reason) - reason - 6),
        "see the device's offers above; another program may hold it (fuser -v /dev/video" + std::to_string(node) + ")");
  } else if (said.empty()) {
    add(findings, head + "nothing: another process of this program does not start",
        "try again when the machine has less to do, and see that /proc is there");
  } else {
    add(findings, head + "no frame within " + std::to_string(patience.count()) + " s",
        "the device has stalled: unplug it, or reload its driver");
  }
}

}  // namespace

Findings checkDevice(int node, cv::Size size, double rate) {
  Findings findings;
  const std::string path = "/dev/video" + std::to_string(node);
  struct stat about {};
  if (stat(path.c_str(), &about) != 0) {
    add(findings, "device: no " + path, "plug the camera in, and see what there is: ls /dev/video*");
    return findings;
  }
  const Descriptor device(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (device < 0) {
    const bool denied = errno == EACCES || errno == EPERM;
    add(findings, "device: cannot open " + path + ": " + std::strerror(errno),
        denied ? "become a member of the group video (usermod -aG video USER, then log in again)"
               : "unplug the camera and plug it in again");
    return findings;
  }
  v4l2_capability can{};
  if (ioctl(device, VIDIOC_QUERYCAP, &can) != 0) {
    add(findings, "device: " + path + " is not a video device", "name the camera's: ls -l /dev/v4l/by-id");
    return findings;
  }
  const __u32 abilities = (can.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? can.device_caps : can.capabilities;
  const bool captures = (abilities & V4L2_CAP_VIDEO_CAPTURE) != 0 && (abilities & V4L2_CAP_STREAMING) != 0;
  add(findings,
      "device: " + path + " is " + reinterpret_cast<const char*>(can.card) + " (" +
          reinterpret_cast<const char*>(can.driver) + ")",
      captures ? "" : "it does not capture video: a camera often has several nodes, try the next");
  if (!captures) {
    return findings;
  }
  checkOffers(findings, device, size, rate);
  for (const char* const backEnd : {"gstreamer", "v4l2"}) {
    checkBackEnd(findings, node, backEnd, size, rate);
  }
  return findings;
}

void probeBackEnd(int node, const std::string& backEnd, cv::Size size, double rate) {
  std::cout << began << std::flush;
  cv::VideoCapture capture(node, backEnd == "gstreamer" ? cv::CAP_GSTREAMER : cv::CAP_V4L2);
  if (!capture.isOpened()) {
    std::cout << "fails it does not open" << std::endl;
    return;
  }
  // As the camera asks; what came of it only a frame tells.
  capture.set(cv::CAP_PROP_FRAME_WIDTH, size.width);
  capture.set(cv::CAP_PROP_FRAME_HEIGHT, size.height);
  capture.set(cv::CAP_PROP_FPS, rate);
  if (!capture.isOpened()) {
    std::cout << "fails it closes when it is asked for " << textOf(size) << " at " << textOf(rate) << std::endl;
    return;
  }
  cv::Mat frame;
  if (!capture.read(frame) || frame.empty()) {
    std::cout << "fails it delivers no frame" << std::endl;
    return;
  }
  std::cout << "frame " << frame.cols << "x" << frame.rows << " " << capture.get(cv::CAP_PROP_FPS) << std::endl;
}

}  // namespace stereo::app
