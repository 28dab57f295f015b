// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace stereo::app {

/// What the system calls its processor, or the board where it has no name for that.
std::string processorName();
/// Processors that this process may run on.
unsigned processorCount();
/// Processor time that this process has used so far, all threads, microseconds.
std::int64_t processMicroseconds();
/// Processor time that was used on the machine since it started, all processes and the kernel, microseconds; nothing
/// where the system doesn't tell.
std::optional<std::int64_t> machineMicroseconds();
/// The most memory that this process ever had resident, megabytes (10^6 bytes).
double peakMegabytes();

}  // namespace stereo::app
