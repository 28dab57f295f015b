// SPDX-License-Identifier: Apache-2.0
// Cameras and the server of their live view, until a signal ends them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "apps/stereo-camera/service/CameraPlan.hpp"

namespace stereo::app {

struct ServiceOptions {
  bool view = true;                  ///< serve the live view
  std::string listen = "127.0.0.1";  ///< address
  int port = 8080;                   ///< 0: any that is free
  std::string tokenFile;             ///< holds the token, and is made if missing; empty: a new token each time
  std::vector<std::string> names;    ///< further names of this machine
  double seconds = 0;                ///< how long to run; 0: until a signal
  ServiceFolders folders;
  bool isService = false;  ///< SIGHUP reloads, and a service manager is told of the state
};

/// Runs until SIGINT or SIGTERM, or the time is over. Throws Failure if it cannot begin; what happens to a camera later
/// is in the log and in the status.
void runService(const ServiceOptions& options, const std::vector<CameraPlan>& plans);

}  // namespace stereo::app
