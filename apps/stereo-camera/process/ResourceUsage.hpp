// SPDX-License-Identifier: Apache-2.0
// Processor name, processor time and memory of process and machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace stereo::app {

/// The processor's name according to the system, or the board's if it has none.
std::string processorName();
/// Processors that this process may run on.
unsigned processorCount();
/// Processor time that this process has used so far, all threads, microseconds.
std::int64_t processMicroseconds();
/// Processor time used since the machine started, all processes and the kernel, microseconds; nothing if the system
/// doesn't report it.
std::optional<std::int64_t> machineMicroseconds();
/// Resident memory of this process now, megabytes (10^6 bytes).
double residentMegabytes();
/// Temperature of the machine's hottest sensor, degrees Celsius; nothing if the system reports none.
std::optional<double> machineTemperature();
/// Peak resident memory of this process, megabytes (10^6 bytes).
double peakMegabytes();

}  // namespace stereo::app
