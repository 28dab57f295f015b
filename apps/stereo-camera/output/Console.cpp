// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/output/Console.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <glib.h>
#include <opencv2/core/utils/logger.hpp>

#include "apps/stereo-camera/process/Descriptor.hpp"
#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

namespace {

/// Writes to a descriptor at each flush; throws if not all is written.
class ResultBuffer : public std::stringbuf {
public:
  explicit ResultBuffer(int descriptor) : m_descriptor(descriptor) {}

protected:
  int sync() override {
    const std::string text = str();
    str("");
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t written = write(m_descriptor, text.data() + done, text.size() - done);
      if (written < 0 && errno != EINTR) {
        throw Failure(ExitCode::output, std::string("cannot write to standard output: ") + std::strerror(errno));
      }
      done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    return 0;
  }

private:
  const int m_descriptor;
};

std::ostream* resultStream = &std::cout;
int resultDescriptor = STDOUT_FILENO;
std::ostream* progressStream = &std::cerr;

}  // namespace

void takeOverStandardOutput() {
  // Both live as long as the process, since other threads may write until its end.
  resultDescriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  auto* const buffer = new ResultBuffer(resultDescriptor);
  resultStream = new std::ostream(buffer);
  resultStream->exceptions(std::ios::badbit);  // lets the buffer's exceptions pass
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

std::ostream& results() { return *resultStream; }

int resultsDescriptor() { return resultDescriptor; }

std::ostream& progress() { return *progressStream; }

ProgressLine::~ProgressLine() {
  if (m_open) {
    progress() << std::endl;
  }
}

void ProgressLine::show(const std::string& text) {
  const auto now = std::chrono::steady_clock::now();
  if (now < m_next) {
    return;
  }
  const bool isTerminal = isatty(STDERR_FILENO) != 0;
  m_next = now + std::chrono::milliseconds(isTerminal ? 200 : 10'000);
  if (isTerminal) {
    progress() << '\r' << text << "\033[K" << std::flush;
    m_open = true;
  } else {
    progress() << text << std::endl;
  }
}

void beQuiet() {
  static std::ostream nowhere(nullptr);
  progressStream = &nowhere;
  const Descriptor nothing(open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (nothing >= 0) {
    dup2(nothing, STDOUT_FILENO);
  }
}

void silenceLibraries() {
  if (std::getenv("OPENCV_LOG_LEVEL") == nullptr) {
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  }
  g_log_set_default_handler([](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);  // GStreamer's
  setenv("OPENCV_FFMPEG_LOGLEVEL", "-8", 0);  // FFmpeg's level "quiet"
}

}  // namespace stereo::app
