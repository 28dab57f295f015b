// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "apps/stereo-camera/observe/RunRecord.hpp"

// What a run's notes add up to. Pure functions.

namespace stereo::app {

/// The part of a run that counts: from `from` until before `to`, system microseconds.
struct Window {
  std::int64_t from = 0;
  std::int64_t to = 0;

  bool holds(std::int64_t time) const { return time >= from && time < to; }
  double seconds() const { return static_cast<double>(to - from) / 1e6; }
};

/// How often something came and how old it was then, milliseconds since the device gave the frame.
struct Figures {
  std::string name;
  std::uint64_t count = 0;
  double perSecond = 0;
  double p50 = 0;  ///< this and the following: 0 where nothing came
  double p90 = 0;
  double p99 = 0;
  double max = 0;
};

/// The smallest of the values that at least the part `q` (0 to 1) of them does not exceed. The values are in ascending
/// order, and there is at least one.
double quantile(const std::vector<double>& sorted, double q);

Figures figures(const std::string& name, std::vector<double> milliseconds, double seconds);

/// From the device's frame to its publication as raw eyes, for the frames read in the window; milliseconds.
std::vector<double> publicationTimes(const std::vector<DeviceFrame>& frames, const Window& window);

/// From the device's frame to the product in hand, for what came in the window; milliseconds. A timestamp is taken at
/// publication, so it belongs to the newest frame that was read before it. Frames are in order of time.
std::vector<double> productTimes(const std::vector<Product>& products, const std::vector<DeviceFrame>& frames,
                                 const Window& window);

/// Coloured depth comes with the timestamp of the raw frame that woke its reader, not that of the disparity it was
/// painted from: gives the products the timestamp of the newest disparity that was surely there. Both workers hold what
/// they publish for a millisecond: the reader looks a millisecond after the timestamp at the earliest, and a disparity
/// is there a millisecond before it is noted. Where the reader was late and got a newer one, it counts as older than it
/// was. What comes before any disparity is left out. Disparities are in order of time.
std::vector<Product> withDisparityTimestamps(const std::vector<Product>& products,
                                             const std::vector<Product>& disparities);

/// Frames that a device delivered while nobody read, as far as gaps tell: those between reads that came back more than
/// one and a half periods apart. 0 where there is no rate.
std::uint64_t missedByGaps(const std::vector<DeviceFrame>& frames, const Window& window, double rate);

/// Part of the window that the reading thread waited in the device's reads, 0 to 1.
double waitingShare(const std::vector<DeviceFrame>& frames, const Window& window);

/// Processor time that a thread used, as a part of one core (0 to 1), between its first and last note in the window.
double threadShare(const std::vector<DeviceFrame>& notes, const Window& window);
double threadShare(const std::vector<Product>& notes, const Window& window);

}  // namespace stereo::app
