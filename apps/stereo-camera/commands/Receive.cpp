// SPDX-License-Identifier: Apache-2.0
// Command receive: shows or saves a camera's network stream.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <opencv2/highgui.hpp>
#include <opencv2/imgcodecs.hpp>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/RunTime.hpp"
#include "apps/stereo-camera/receive/NetworkImages.hpp"
#include "model/CameraFacts.hpp"

namespace stereo::app {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds slice{100};  // longest wait between checks for Ctrl-C and the window
constexpr int fastCompression = 1;               // of 9, so that saving keeps up with the stream
constexpr int escapeKey = 27;

struct ReceiveOptions {
  int port = model::firstStreamPort;
  std::string save;
  bool show = false;
  int count = 0;
  double patience = 10;
};

// Shows received images. Owns the window; used on the host's thread, as windows require.
class Window {
public:
  Window() {
    // Without a display the window library ends the process instead of reporting an error.
    if (std::getenv("DISPLAY") == nullptr && std::getenv("WAYLAND_DISPLAY") == nullptr) {
      throw Failure(ExitCode::output, "--show: no display (DISPLAY is not set)");
    }
    cv::namedWindow(name, cv::WINDOW_NORMAL | cv::WINDOW_KEEPRATIO);
  }
  ~Window() { cv::destroyAllWindows(); }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  void show(const cv::Mat& image) { cv::imshow(name, image); }

  // Processes the window's events; false once the user closed it or pressed q or Escape.
  bool stays() {
    const int key = cv::waitKey(1);
    return key != 'q' && key != escapeKey && cv::getWindowProperty(name, cv::WND_PROP_VISIBLE) > 0;
  }

private:
  static constexpr const char* name = "stereo-camera";
};

void save(const cv::Mat& image, const std::filesystem::path& folder, int number) {
  char name[32];
  std::snprintf(name, sizeof name, "image-%05d.png", number);
  writeImage(folder / name, image, {cv::IMWRITE_PNG_COMPRESSION, fastCompression});
}

void receive(const ReceiveOptions& options) {
  if (!options.save.empty()) {
    makeFolder(options.save);
  }
  std::unique_ptr<Window> window;
  if (options.show) {
    window = std::make_unique<Window>();
  }
  const RunTime time(0);
  NetworkImages stream(options.port);
  progress() << "listening on port " << options.port << std::endl;
  const std::chrono::milliseconds patience(static_cast<long>(1000 * options.patience));
  auto last = Clock::now();
  int received = 0;
  cv::Size size;
  while (!time.over() && (options.count == 0 || received < options.count) && Clock::now() - last < patience &&
         (window == nullptr || window->stays())) {
    const cv::Mat image = stream.next(std::min(slice, patience));
    if (image.empty()) {
      continue;
    }
    last = Clock::now();
    ++received;
    if (image.size() != size) {
      size = image.size();
      progress() << "images of " << size.width << " x " << size.height << " pixels" << std::endl;
    }
    if (!options.save.empty()) {
      save(image, options.save, received);
    }
    if (window != nullptr) {
      window->show(image);
    }
  }
  if (received == 0) {
    throw Failure(ExitCode::noFrames, "no image came on port " + std::to_string(options.port) +
                                          ": does the camera stream, to this address and port?");
  }
  results() << "received " << received << " images, the last of " << size.width << " x " << size.height << " pixels"
            << std::endl;
  if (stream.dropped() > 0) {
    results() << stream.dropped() << " images were dropped, since they came faster than they could be "
              << (options.save.empty() ? "shown" : "saved") << std::endl;
  }
}

}  // namespace

Action addReceive(CLI::App& program) {
  auto options = std::make_shared<ReceiveOptions>();
  CLI::App* const command = program.add_subcommand("receive", "receive images from a camera's network stream");
  command->add_option("--port", options->port, "UDP port: 9200 + position of the camera")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  command->add_option("--save", options->save, "folder for the images, as numbered PNG files")->type_name("FOLDER");
  command->add_flag("--show", options->show, "show the images in a window (q or Escape ends)");
  command->add_option("--count", options->count, "images after which to end; 0: when no more come, or at Ctrl-C")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command->add_option("--patience", options->patience, "seconds without an image after which to end")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
  return [options] { receive(*options); };
}

}  // namespace stereo::app
