// SPDX-License-Identifier: Apache-2.0
#include "tests/support/StorageOracle.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <opencv2/core/utils/logger.hpp>

#include "tests/support/TempDir.hpp"

namespace stereo::test {

namespace {

void describe(const cv::FileNode& node, std::string& text) {
  text += std::to_string(node.type()) + ' ' + (node.isNamed() ? node.name() : "") + '=';
  if (node.isInt()) {
    text += std::to_string(static_cast<int>(node));
  } else if (node.isReal()) {
    char number[40];
    std::snprintf(number, sizeof number, "%a", static_cast<double>(node));
    text += number;
  } else if (node.isString()) {
    text += static_cast<std::string>(node);
  } else {
    for (const cv::FileNode& child : node) {
      describe(child, text);
      text += ';';
    }
  }
  text += '.';
}

std::string escaped(const std::string& text) {
  std::string line;
  for (const char c : text) {
    line += c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
  }
  return line;
}

Reading readFrom(const std::string& path, const Open& open) {
  try {
    const std::unique_ptr<cv::FileStorage> storage = open(path);
    Reading reading{Fate::read, storage->isOpened() ? "open" : "closed"};
    for (int stream = 0; !storage->root(stream).empty(); ++stream) {
      describe(storage->root(stream), reading.values);
    }
    return reading;
  } catch (const cv::Exception&) {
    return {Fate::refused, ""};
  }
}

// Sends one reading after the other; ends at the first that fails.
[[noreturn]] void readAll(const std::vector<std::string>& documents, std::size_t first, const std::string& path,
                          const Open& open, int results) {
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  if (dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO) < 0) {
    _exit(1);
  }
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  for (std::size_t k = first; k < documents.size(); ++k) {
    // Seconds of processor time. A document takes a few milliseconds.
    const itimerval limit{{0, 0}, {0, 300'000}};
    setitimer(ITIMER_VIRTUAL, &limit, nullptr);
    try {
      writeFile(path, documents[k]);
      const Reading reading = readFrom(path, open);
      const std::string line = std::to_string(static_cast<int>(reading.fate)) + escaped(reading.values) + '\n';
      for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count = write(results, line.data() + sent, line.size() - sent);
        if (count <= 0) {
          _exit(1);
        }
        sent += static_cast<std::size_t>(count);
      }
    } catch (...) {
      _exit(1);
    }
  }
  _exit(0);
}

}  // namespace

std::unique_ptr<cv::FileStorage> openBare(const std::string& path) {
  return std::make_unique<cv::FileStorage>(path, cv::FileStorage::READ, "");
}

std::vector<Reading> readInChildren(const std::vector<std::string>& documents, const std::string& fileName,
                                    const Open& open) {
  const TempDir folder;
  std::vector<Reading> readings;
  while (readings.size() < documents.size()) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
      readAll(documents, readings.size(), folder.path(fileName), open, ends[1]);
    }
    close(ends[1]);
    std::string sent;
    char piece[1 << 16];
    for (ssize_t count = 0; (count = read(ends[0], piece, sizeof piece)) > 0;) {
      sent.append(piece, static_cast<std::size_t>(count));
    }
    close(ends[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
      throw std::runtime_error("no child");
    }
    for (std::size_t from = 0, end = 0; (end = sent.find('\n', from)) != std::string::npos; from = end + 1) {
      readings.push_back({static_cast<Fate>(sent[from] - '0'), sent.substr(from + 1, end - from - 1)});
    }
    if (readings.size() < documents.size()) {
      readings.push_back({});  // the one that it was at
    }
  }
  return readings;
}

}  // namespace stereo::test
