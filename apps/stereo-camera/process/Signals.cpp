// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/process/Signals.hpp"

#include <atomic>

#include <signal.h>

#include "apps/stereo-camera/process/Ended.hpp"

namespace stereo::app {

namespace {

// Set by the handler, which may run on any thread, including those of OpenCV and GStreamer.
std::atomic<int> received{0};
static_assert(std::atomic<int>::is_always_lock_free, "a handler must not wait for a lock");

std::atomic<bool> reloadAsked{false};
std::atomic<bool> hangupReloads{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a handler must not wait for a lock");

void note(int signal) {
  if (signal == SIGHUP && hangupReloads) {
    reloadAsked = true;
    return;
  }
  int none = 0;
  received.compare_exchange_strong(none, signal);
}

void handle(int signal, bool once) {
  struct sigaction action {};
  action.sa_handler = note;
  // Reset: the second signal ends the process. Restart: the first makes no library's system call fail.
  action.sa_flags = SA_RESTART | (once ? static_cast<int>(SA_RESETHAND) : 0);
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

void takeOverSignals() {
  handle(SIGINT, true);
  handle(SIGTERM, true);
  // These come twice without anyone asking twice: from shell and kernel, and with every line written.
  for (const int signal : {SIGHUP, SIGPIPE}) {
    struct sigaction former {};
    if (sigaction(signal, nullptr, &former) == 0 && former.sa_handler != SIG_IGN) {
      handle(signal, false);
    }
  }
}

int signalReceived() { return received.load(std::memory_order_relaxed); }

void checkSignals() {
  if (const int signal = signalReceived(); signal != 0) {
    throw Ended(signal);
  }
}

void forgiveSignal() {
  const int signal = received.exchange(0);
  if (signal == SIGINT || signal == SIGTERM) {
    handle(signal, true);
  }
}

void takeHangupForReload() {
  hangupReloads = true;
  handle(SIGHUP, false);
}

bool takeReload() { return reloadAsked.exchange(false); }

}  // namespace stereo::app
