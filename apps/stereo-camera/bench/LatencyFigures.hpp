// SPDX-License-Identifier: Apache-2.0
// Rates, latencies and losses from a run's record. Pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "apps/stereo-camera/observe/RunRecord.hpp"

namespace stereo::app {

/// The measured part of a run: from `from` until before `to`, system microseconds.
struct Window {
  std::int64_t from = 0;
  std::int64_t to = 0;

  bool holds(std::int64_t time) const { return time >= from && time < to; }
  double seconds() const { return static_cast<double>(to - from) / 1e6; }
};

/// How often something came, and its latency: milliseconds since the device delivered the frame.
struct Figures {
  std::string name;
  std::uint64_t count = 0;
  double perSecond = 0;
  double p50 = 0;  ///< this and the following: 0 if nothing came
  double p90 = 0;
  double p99 = 0;
  double max = 0;
};

/// The smallest value such that a share `q` (0 to 1) of the values does not exceed it. Values are ascending and not
/// empty.
double quantile(const std::vector<double>& sorted, double q);

Figures figures(const std::string& name, std::vector<double> milliseconds, double seconds);

/// Milliseconds from the device's frame to its publication as raw eyes, for the frames read in the window.
std::vector<double> publicationTimes(const std::vector<DeviceFrame>& frames, const Window& window);

/// Milliseconds from the device's frame until the product was ready, for what came in the window. A timestamp is taken
/// at publication, so it belongs to the newest frame read before it. Frames are in order of time.
std::vector<double> productTimes(const std::vector<Product>& products, const std::vector<DeviceFrame>& frames,
                                 const Window& window);

/// Colored depth comes with the timestamp of the raw frame that woke its reader, not that of the disparity it was made
/// from. Replaces it by the timestamp of the newest disparity that was surely available. Both workers hold what they
/// publish for a millisecond: the reader looks a millisecond after the timestamp at the earliest, and a disparity is
/// available a millisecond before it is recorded. If the reader was late and got a newer disparity, its latency is
/// overestimated. Products before the first disparity are dropped. Disparities are in order of time.
std::vector<Product> withDisparityTimestamps(const std::vector<Product>& products,
                                             const std::vector<Product>& disparities);

/// Frames lost, estimated from reads that returned more than one and a half periods apart. 0 if there is no rate.
std::uint64_t missedByGaps(const std::vector<DeviceFrame>& frames, const Window& window, double rate);

/// Share of the window that the reading thread waited in the device's reads, 0 to 1.
double waitingShare(const std::vector<DeviceFrame>& frames, const Window& window);

/// Processor time of a thread as a share of one core (0 to 1), between its first and last entry in the window.
double threadShare(const std::vector<DeviceFrame>& notes, const Window& window);
double threadShare(const std::vector<Product>& notes, const Window& window);

}  // namespace stereo::app
