// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/ConsumerProcess.hpp"

#include <string>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stereo::soak {

namespace {

constexpr std::uint64_t mostImages = 60;  // that a process may take before its time has come
constexpr int mostMicroseconds = 20'000;  // that pass on top, so that the end comes anywhere in the handshake
constexpr std::chrono::milliseconds poll(2);

}  // namespace

std::string faultOfEnd(int waitStatus, bool wasKilled, const std::string& lastWords) {
  if (!lastWords.empty()) {
    return lastWords;
  }
  const bool byKill = WIFSIGNALED(waitStatus) && WTERMSIG(waitStatus) == SIGKILL;
  return wasKilled && byKill ? "" : "ended with wait status " + std::to_string(waitStatus);
}

ConsumerProcess::ConsumerProcess(const SharedCounters& shared, int key, std::uint32_t seed, Failures& failures)
    : m_shared(shared), m_key(key), m_random(seed), m_failures(failures), m_thread([this] { run(); }) {}

ConsumerProcess::~ConsumerProcess() {
  {
    const std::lock_guard lock(m_mutex);
    m_over = true;
  }
  m_ending.notify_all();
  m_thread.join();
}

// This program once more. By the thread that lives as long as the process does: it dies with the one that started it.
pid_t ConsumerProcess::start() const {
  std::string arguments[] = {"soak", "--take", std::to_string(m_shared.descriptor()), std::to_string(m_key),
                             std::to_string(getpid())};
  char* const argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(),
                        arguments[3].data(), arguments[4].data(), nullptr};
  pid_t process = -1;
  return posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, argv, environ) == 0 ? process : -1;
}

void ConsumerProcess::run() {
  for (;;) {
    const pid_t process = start();
    if (process == -1) {
      m_failures.add("consumer", "cannot be started");
      return;
    }
    awaitEnd(process);
    if (!m_reaped) {
      kill(process, SIGKILL);
      int status = 0;
      waitpid(process, &status, 0);
      noteEnd(status, true);  // it may have ended by itself just before
    }
    const std::lock_guard lock(m_mutex);
    if (m_over || m_reaped) {
      return;
    }
    ++m_restarts;
  }
}

void ConsumerProcess::awaitEnd(pid_t process) {
  const std::uint64_t enough = taken() + std::uniform_int_distribution<std::uint64_t>(1, mostImages)(m_random);
  std::unique_lock lock(m_mutex);
  while (taken() < enough && !m_over && !ended(process)) {
    m_ending.wait_for(lock, poll);
  }
  const std::chrono::microseconds rest(std::uniform_int_distribution(0, mostMicroseconds)(m_random));
  m_ending.wait_for(lock, rest, [this] { return m_over; });
  ended(process);
}

bool ConsumerProcess::ended(pid_t process) {
  int status = 0;
  if (!m_reaped && waitpid(process, &status, WNOHANG) == process) {
    m_reaped = true;
    noteEnd(status, false);
  }
  return m_reaped;
}

void ConsumerProcess::noteEnd(int waitStatus, bool wasKilled) {
  const std::string fault = faultOfEnd(waitStatus, wasKilled, m_shared.counters().failure.data());
  if (!fault.empty()) {
    m_failures.add("consumer", fault);
  }
}

}  // namespace stereo::soak
