// SPDX-License-Identifier: Apache-2.0
// Cameras at full load for as long as is wanted, every image checked, every resource watched. See docs/developing.md.
#include <iostream>
#include <stdexcept>
#include <string>

#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "tests/campaigns/soak/SegmentReader.hpp"
#include "tests/campaigns/soak/Soak.hpp"

namespace {

using stereo::soak::Breaks;
using stereo::soak::Options;

// Freed memory goes back to the system. Otherwise each of the allocator's arenas keeps some for an image of the same
// size, which levels off only after hundreds of lives.
void keepNothingFreed() {
  constexpr int bytes = 128 * 1024;  // the system's own limits at first; setting them keeps them there
  mallopt(M_MMAP_THRESHOLD, bytes);
  mallopt(M_TRIM_THRESHOLD, bytes);
}

// In every thread and process to come; the run waits for them.
void blockStopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

Breaks breaksOf(const std::vector<std::string>& names) {
  Breaks breaks;
  for (const std::string& name : names) {
    (name == "tear"         ? breaks.tear
     : name == "image"      ? breaks.image
     : name == "restart"    ? breaks.restart
     : name == "memory"     ? breaks.memory
     : name == "descriptor" ? breaks.descriptor
     : name == "thread"     ? breaks.thread
                            : breaks.segment) = true;
  }
  return breaks;
}

void addOptions(CLI::App& program, Options& options) {
  program.add_option("--minutes", options.minutes, "length of the run")
      ->check(CLI::Range(0.01, 100'000.0))
      ->capture_default_str();
  program.add_option("--captures", options.lives, "end after so many starts of capture instead")
      ->check(CLI::PositiveNumber);
  program.add_option("--seconds", options.lifeSeconds, "least time from start to stop of capture")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  program
      .add_option("--reads", options.reads,
                  "least reads of each product before and after each restart of the disparity")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  program.add_option("--settle", options.settleSeconds, "most time after each capture for threads and the like to end")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  program.add_option("--warm-up", options.warmUpLives, "captures whose resources are not judged")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  program.add_option("--pictures", options.pictures, "different pictures that the device shows in turn")
      ->check(CLI::Range(2, 64))
      ->capture_default_str();
  program.add_option("--seed", options.seed, "of the scene and of the consumer's ends")->capture_default_str();
  program.add_option("--json", options.json, "file to write the figures to");
}

int run(int argc, char** argv) {
  blockStopSignals();
  keepNothingFreed();
  Options options;
  bool noStream = false;
  std::string libraryOutput = "/dev/null";
  std::vector<std::string> breaks;
  std::vector<int> take;  // how the consumer is started: the descriptor of the shared memory, the segment's key and
                          // the starter's process id
  CLI::App program("Runs simulated cameras at full load, checks every image and watches every resource.");
  addOptions(program, options);
  program.add_flag("--no-stream", noStream, "never stream; without it, the program has to be in a network of its own");
  program.add_option("--log", libraryOutput, "file for what the library says on standard output");
  program.add_option("--break", breaks, "")
      ->check(CLI::IsMember({"tear", "image", "restart", "memory", "descriptor", "thread", "segment"}))
      ->delimiter(',')
      ->group("");
  program.add_option("--take", take, "")->expected(3)->group("");
  CLI11_PARSE(program, argc, argv);

  if (!take.empty()) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // goes with the process that started it, which may be gone by now
    const pid_t starter = take[2];
    takeImages(stereo::soak::SharedCounters::open(take[0]), take[1], [starter] { return getppid() == starter; });
    return 1;
  }
  options.breaks = breaksOf(breaks);
  options.streams = !noStream;
  if (options.streams && !stereo::test::inOwnNetwork()) {
    std::cerr << "soak: this streams; run it through scripts/in-own-network, or with --no-stream" << std::endl;
    return 2;
  }
  stereo::soak::SoakReport report(libraryOutput);
  report.line("making the pictures and all that is to come of them ...");
  stereo::soak::Soak soak(options, report);
  return soak.run() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "soak: " << error.what() << std::endl;
    return 2;
  }
}
