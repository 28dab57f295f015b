// SPDX-License-Identifier: Apache-2.0
// Reports of the class through its log.
#include "src/StereoCameraCommon/LogReports.hpp"

#include <iostream>

#include "SystemLog.hpp"

namespace stereo {

void reportInfo(SystemLog* log, const char* text) {
  if (log != nullptr) {
    log->runTimeInfo("%s", text);
  }
}

void reportError(SystemLog* log, const char* text) {
  if (log != nullptr) {
    log->runTimeError("%s", text);
  } else {
    std::cerr << text << std::flush;
  }
}

}  // namespace stereo
