// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Await.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::test {

using Arguments = std::vector<std::string>;

inline Arguments operator+(Arguments first, const Arguments& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

/// Another program that runs beside the test, from construction on. Killed if it still runs when this goes.
class Program {
public:
  /// `environment` changes this process's: "NAME=value" sets, "NAME" takes away.
  Program(const std::string& path, const Arguments& arguments, const std::vector<std::string>& environment = {}) {
    std::vector<std::string> words{path};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> settings = changedEnvironment(environment);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, m_folder.path("out").c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&files, 2, m_folder.path("err").c_str(), O_WRONLY | O_CREAT, 0600);
    const int failure =
        posix_spawn(&m_id, path.c_str(), &files, nullptr, pointers(words).data(), pointers(settings).data());
    posix_spawn_file_actions_destroy(&files);
    if (failure != 0) {
      throw std::runtime_error("cannot run " + path);
    }
  }
  ~Program() {
    if (m_id > 0) {
      kill(m_id, SIGKILL);
      waitpid(m_id, nullptr, 0);
    }
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Waits for the program's end; its exit code. -1 if it was ended by a signal, -2 if it is still running when the
  /// time is over.
  int wait(std::chrono::milliseconds limit = 2 * deadline) {
    int status = 0;
    if (m_id > 0 && await([&] { return waitpid(m_id, &status, WNOHANG) == m_id; }, limit)) {
      m_id = -1;
      m_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return m_code;
  }

  void send(int signal) const {
    if (m_id > 0) {
      kill(m_id, signal);
    }
  }

  /// What the program wrote so far.
  std::string out() const { return readFile(m_folder.path("out")); }
  std::string err() const { return readFile(m_folder.path("err")); }

private:
  static std::vector<std::string> changedEnvironment(const std::vector<std::string>& changes) {
    std::vector<std::string> result;
    for (char** each = environ; *each != nullptr; ++each) {
      const std::string setting = *each;
      const auto sameName = [&](const std::string& change) {
        return change.substr(0, change.find('=')) == setting.substr(0, setting.find('='));
      };
      if (std::none_of(changes.begin(), changes.end(), sameName)) {
        result.push_back(setting);
      }
    }
    std::copy_if(changes.begin(), changes.end(), std::back_inserter(result),
                 [](const std::string& change) { return change.find('=') != std::string::npos; });
    return result;
  }

  // As the system wants them; valid as long as the strings are.
  static std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
    for (std::string& each : strings) {
      result.push_back(each.data());
    }
    result.push_back(nullptr);
    return result;
  }

  TempDir m_folder;
  pid_t m_id = -1;
  int m_code = -2;
};

/// What a program left when it was over; `code` as Program::wait() returns it.
struct Outcome {
  int code;
  std::string out;
  std::string err;
};

/// Runs another program to its end.
inline Outcome run(const std::string& path, const Arguments& arguments,
                   const std::vector<std::string>& environment = {}, std::chrono::milliseconds limit = 2 * deadline) {
  Program program(path, arguments, environment);
  const int code = program.wait(limit);
  return {code, program.out(), program.err()};
}

}  // namespace stereo::test
