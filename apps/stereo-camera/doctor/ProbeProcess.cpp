// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/doctor/ProbeProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <sstream>

#include "apps/stereo-camera/process/Descriptor.hpp"

extern char** environ;

namespace stereo::app {

namespace {

using Clock = std::chrono::steady_clock;

// Starts the process with its standard output at the writing end of a pipe; below 0 if it could not be started.
pid_t start(const std::string& program, std::vector<std::string>& arguments, int writing) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, writing, STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int failure = posix_spawn(&child, program.c_str(), &files, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  return failure == 0 ? child : -1;
}

// The answer in the complete lines of the output so far.
ProbeAnswer understood(const std::string& output) {
  ProbeAnswer answer;
  std::istringstream lines(output.substr(0, output.rfind('\n') + 1));
  for (std::string line; std::getline(lines, line);) {
    if (answer.how == ProbeAnswer::How::neverBegan) {
      answer.how = line == probeBegan ? ProbeAnswer::How::keptWaiting : answer.how;
    } else if (line.rfind("frame ", 0) == 0 || line.rfind("fails ", 0) == 0) {
      return {ProbeAnswer::How::answered, line};
    }
  }
  return answer;
}

}  // namespace

ProbeAnswer askProcess(const std::string& program, std::vector<std::string> arguments,
                       std::chrono::milliseconds toBegin, std::chrono::milliseconds toAnswer) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return {};
  }
  const Descriptor reading(ends[0]);
  const pid_t child = start(program, arguments, ends[1]);
  close(ends[1]);
  if (child < 0) {
    return {};
  }
  ProbeAnswer answer;
  std::string output;
  Clock::time_point end = Clock::now() + toBegin;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    pollfd wait{reading, POLLIN, 0};
    if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) <= 0) {
      break;
    }
    char piece[256];
    const ssize_t count = read(reading, piece, sizeof piece);
    if (count <= 0) {
      answer.how = answer.how == ProbeAnswer::How::keptWaiting ? ProbeAnswer::How::endedWithout : answer.how;
      break;
    }
    output.append(piece, static_cast<std::size_t>(count));
    const bool hadBegun = answer.how != ProbeAnswer::How::neverBegan;
    answer = understood(output);
    if (!hadBegun && answer.how != ProbeAnswer::How::neverBegan) {
      end = Clock::now() + toAnswer;
    }
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return answer;
}

}  // namespace stereo::app
