// SPDX-License-Identifier: Apache-2.0
// Facts about OpenCV's back ends on a device, measured: what they answer to sizes and rates that the device does not
// have, and what a read does when frames stop. Prints lines; judges nothing.
//
//   device_probe BACK_END DEVICE                   sizes and rates
//   device_probe BACK_END DEVICE --reads SECONDS   reads for that long, says when one fails or takes more than a second
//
// BACK_END: gstreamer, v4l2 or any.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include <opencv2/videoio.hpp>

namespace {

using std::chrono::steady_clock;

double secondsSince(steady_clock::time_point start) {
  return std::chrono::duration<double>(steady_clock::now() - start).count();
}

int apiOf(const std::string& name) {
  return name == "gstreamer" ? cv::CAP_GSTREAMER : name == "v4l2" ? cv::CAP_V4L2 : cv::CAP_ANY;
}

void describe(cv::VideoCapture& device, const char* after) {
  std::printf("  %-28s says %4.0f x %4.0f at %6.2f", after, device.get(cv::CAP_PROP_FRAME_WIDTH),
              device.get(cv::CAP_PROP_FRAME_HEIGHT), device.get(cv::CAP_PROP_FPS));
  std::fflush(stdout);
  cv::Mat frame;
  const auto start = steady_clock::now();
  auto read = std::async(std::launch::async, [&] { return device.read(frame); });
  if (read.wait_for(std::chrono::seconds(15)) != std::future_status::ready) {
    // The one way out of a read that waits without end.
    const auto released = steady_clock::now();
    device.release();
    read.wait();
    std::printf(", read waits without end; release ended it in %.2f s\n", secondsSince(released));
    return;
  }
  const bool isRead = read.get();
  std::printf(", read %s %d x %d in %.2f s\n", isRead ? "gives" : "fails", frame.cols, frame.rows, secondsSince(start));
  std::fflush(stdout);
}

void sizesAndRates(int api, int index) {
  // Each on a device opened anew, as the camera class sets them: width, then height, then rate.
  const double wanted[][3] = {{1856, 800, 30}, {928, 400, 30}, {928, 400, 5}, {640, 480, 30}, {640, 480, 25}};
  for (const auto& [width, height, rate] : wanted) {
    cv::VideoCapture device(index, api);
    if (!device.isOpened()) {
      std::printf("  not opened\n");
      return;
    }
    describe(device, "opened");
    std::printf("  set %.0f x %.0f at %.0f:", width, height, rate);
    for (const auto& [property, value] :
         {std::pair{cv::CAP_PROP_FRAME_WIDTH, width}, {cv::CAP_PROP_FRAME_HEIGHT, height}, {cv::CAP_PROP_FPS, rate}}) {
      const bool answer = device.set(property, value);
      std::printf(" %s (%s)", answer ? "yes" : "no", device.isOpened() ? "open" : "closed");
    }
    std::printf("\n");
    std::fflush(stdout);
    describe(device, "then");
  }
}

void reads(int api, int index, double seconds) {
  cv::VideoCapture device(index, api);
  if (!device.isOpened()) {
    std::printf("  not opened\n");
    return;
  }
  const auto start = steady_clock::now();
  long good = 0;
  long failed = 0;
  while (secondsSince(start) < seconds) {
    cv::Mat frame;
    const auto before = steady_clock::now();
    const bool isRead = device.read(frame) && !frame.empty();
    const double taken = secondsSince(before);
    (isRead ? good : failed) += 1;
    if (taken > 1 || (!isRead && failed <= 3)) {
      std::printf("  after %.1f s: a read %s in %.3f s\n", secondsSince(start), isRead ? "gave a frame" : "failed",
                  taken);
      std::fflush(stdout);
    }
    if (!isRead) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  std::printf("  %ld frames, %ld failed reads\n", good, failed);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 5) {
    std::fprintf(stderr, "device_probe: wants BACK_END DEVICE [--reads SECONDS]\n");
    return 2;
  }
  const int api = apiOf(argv[1]);
  const int index = static_cast<int>(std::strtol(argv[2], nullptr, 10));
  std::printf("%s, /dev/video%d\n", argv[1], index);
  argc == 5 ? reads(api, index, std::strtod(argv[4], nullptr)) : sizesAndRates(api, index);
  return 0;
}
