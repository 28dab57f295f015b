// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace stereo::soak {

/// What this process holds of the system.
struct Resources {
  long residentKilobytes = 0;
  long threads = 0;
  long descriptors = 0;
  long segments = 0;       ///< System V segments that it made and that are still there
  long heapKilobytes = 0;  ///< allocated and not freed; 0 under the sanitizers, which have a heap of their own
};

Resources resourcesInUse();

/// How long a series has to be, and how much it may rise, before it says anything.
struct Limits {
  std::size_t warmUp = 0;           ///< samples at the beginning that do not count
  bool judgeMemory = true;          ///< false under the sanitizers, which keep what was freed
  std::size_t memorySamples = 20;   ///< least for the memory
  long memoryKilobytes = 8 * 1024;  ///< that the resident memory may rise by
  long heapKilobytes = 8 * 1024;    ///< that the allocated memory may rise by
  std::size_t countSamples = 4;     ///< least for threads and descriptors
};

/// Something that did not stay flat.
struct Rise {
  std::string what;
  std::string text;
};

/// Judges samples that were taken in one and the same situation, evenly spread over the run, but for the warm-up.
/// Tells each thing that rises:
/// - resident and allocated memory: the median of the last quarter above that of the second quarter by more than the
///   limit;
/// - threads, descriptors: the least of the second half above the least of the first (what comes and goes adds to some
///   samples only, what leaks adds to all that follow).
/// The last sample's segments are judged too, even if all is warm-up: there have to be none.
std::vector<Rise> assess(const std::vector<Resources>& samples, const Limits& limits);

/// What cannot be judged in so many samples, and why; empty if everything can.
std::string unjudged(std::size_t samples, const Limits& limits);

/// Resident kilobytes from the one median to the other; negative where the memory shrank. At least four samples.
long memoryRise(const std::vector<Resources>& samples);

/// What it judges by, in words: medians of the memory, least numbers of threads and descriptors, before and after.
/// Empty for fewer than four samples.
std::string describe(const std::vector<Resources>& samples);

}  // namespace stereo::soak
