// SPDX-License-Identifier: Apache-2.0
// The host program.
#include <exception>
#include <iostream>

#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/Signals.hpp"

// Only a failed allocation can escape what is caught.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  using namespace stereo::app;
  takeOverStandardOutput();
  takeOverSignals();
  try {
    return runCommand(argc, argv);
  } catch (const Failure& failure) {
    std::cerr << "stereo-camera: " << failure.what() << std::endl;
    return static_cast<int>(failure.code());
  } catch (const std::exception& error) {
    std::cerr << "stereo-camera: unexpected error: " << error.what() << std::endl;
    return static_cast<int>(ExitCode::unexpected);
  }
}
