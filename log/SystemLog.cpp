// SPDX-License-Identifier: Apache-2.0
// The log of a camera: one uninterrupted write for each record.
#include "SystemLog.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <utility>

#include <poll.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

// Standard output or standard error. Shared by all logs of the process, since they share the streams.
struct Channel {
  std::FILE* stream;
  bool lineOpen;  // the last record ended without a line end
};

// Locks a stream with flockfile.
class StreamLock {
public:
  explicit StreamLock(std::FILE* stream) : m_stream(stream) { flockfile(m_stream); }
  ~StreamLock() { funlockfile(m_stream); }
  StreamLock(const StreamLock&) = delete;
  StreamLock& operator=(const StreamLock&) = delete;

private:
  std::FILE* m_stream;
};

// Leaf lock: held for one write; nothing is waited for meanwhile but the stream itself.
std::mutex channelMutex;

// Created on first use: a log may be needed before the statics of this file are initialized.
Channel& infoChannel() {
  static Channel channel{stdout, false};
  return channel;
}

Channel& errorChannel() {
  static Channel channel{stderr, false};
  return channel;
}

// Standard output and standard error are often the same terminal or file; then an open line on one is open on both.
bool samePlace(const Channel& a, const Channel& b) {
  struct stat sa {};
  struct stat sb {};
  return fstat(fileno(a.stream), &sa) == 0 && fstat(fileno(b.stream), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

void writeAll(int descriptor, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(descriptor, data, size);
    if (written > 0) {
      data += written;
      size -= static_cast<std::size_t>(written);
    } else if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      // The host may have made its terminal or pipe non-blocking: wait rather than lose the line.
      pollfd waiting{descriptor, POLLOUT, 0};
      if (::poll(&waiting, 1, -1) < 0 && errno != EINTR) {
        return;
      }
    } else if (!(written < 0 && errno == EINTR)) {
      return;  // the stream is closed, and there is nowhere to report that
    }
  }
}

std::string prefix(const std::string& name) {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char timestamp[64];
  const std::size_t length = std::strftime(timestamp, sizeof timestamp, "%Y-%m-%d %H:%M:%S", &local);
  char micros[16];
  static_cast<void>(std::snprintf(micros, sizeof micros, ".%06ld", static_cast<long>(now.tv_usec)));  // always fits
  std::string text(timestamp, length);
  text.append(micros).append(" [").append(name).append("] ");
  return text;
}

std::string formatted(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0) {
    return format;  // an argument cannot be encoded; the bare format still says what happened
  }
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));  // same length as above
  text.pop_back();
  return text;
}

void report(Channel& channel, Channel& other, const std::string& name, const char* format, va_list arguments) noexcept {
  try {
    const std::string text = formatted(format, arguments);
    // The stream's own lock keeps the host's output before the record and out of its middle. It is taken first, in the
    // same order as by a host that holds it while it calls an operation that reports.
    const StreamLock streamLock(channel.stream);
    const std::lock_guard lock(channelMutex);
    std::string record;
    if (channel.lineOpen || (other.lineOpen && samePlace(channel, other))) {
      record.push_back('\n');
      other.lineOpen = other.lineOpen && !samePlace(channel, other);
    }
    record.append(prefix(name)).append(text);
    channel.lineOpen = record.back() != '\n';
    static_cast<void>(std::fflush(channel.stream));  // the host's output may get lost, the record must not
    writeAll(fileno(channel.stream), record.data(), record.size());
  } catch (...) {
    // Out of memory: no record can be built, and callers rely on reports not to throw.
  }
}

}  // namespace

SystemLog::SystemLog(std::string name) : m_name(std::move(name)) {}

void SystemLog::setLogLevel(int level) noexcept { m_level.store(level, std::memory_order_relaxed); }

// NOLINTNEXTLINE(cert-dcl50-cpp): hosts call it as they call printf
void SystemLog::runTimeInfo(const char* format, ...) noexcept {
  if (m_level.load(std::memory_order_relaxed) < 1) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  report(infoChannel(), errorChannel(), m_name, format, arguments);
  va_end(arguments);
}

// NOLINTNEXTLINE(cert-dcl50-cpp): hosts call it as they call printf
void SystemLog::runTimeError(const char* format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  report(errorChannel(), infoChannel(), m_name, format, arguments);
  va_end(arguments);
}
