// SPDX-License-Identifier: Apache-2.0
// The service's status as JSON and as Prometheus reads it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/stereo-camera/service/CameraStatus.hpp"

namespace stereo::app {

/// How the machine and the program are.
struct BoardStatus {
  std::optional<double> temperature;  ///< degrees Celsius
  std::optional<double> load;         ///< percent of all processors, over the last second or so
  unsigned processors = 0;
  double megabytes = 0;  ///< of resident memory
  double uptime = 0;     ///< seconds since the program began
  std::int64_t now = 0;  ///< system microseconds
  int viewers = 0;
  std::uint64_t refusals = 0;  ///< requests that the server refused
};

std::string statusJson(const std::vector<CameraStatus>& cameras, const BoardStatus& board, bool mayChange);
std::string metricsText(const std::vector<CameraStatus>& cameras, const BoardStatus& board);

}  // namespace stereo::app
