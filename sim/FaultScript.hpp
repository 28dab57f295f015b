// SPDX-License-Identifier: Apache-2.0
// Fault scripts: what goes wrong with a device, frame by frame.
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::sim {

/// A fault of a device over a range of frames.
struct Fault {
  enum class Kind {
    drop,       ///< the frame is lost: the read fails and empties its output
    delay,      ///< the device delivers in time, but the read returns `time` later
    duplicate,  ///< the previous picture comes again
    tear,       ///< upper half of this picture, lower half of the previous one
    size,       ///< another resolution, `size`
    gray,       ///< one channel instead of three
    deep,       ///< 16 bits per channel instead of 8
    empty,      ///< the read succeeds with an empty picture
    untouched,  ///< the read succeeds and leaves its output unchanged
    black,      ///< all pixels 0
    stall,      ///< the read blocks for `time` before the device is read
    unplug,     ///< from this frame on, the device is gone for `time`: reads fail at once
  };
  static constexpr std::uint64_t noEnd = std::numeric_limits<std::uint64_t>::max();
  static constexpr std::chrono::milliseconds forever = std::chrono::milliseconds::max();

  Kind kind = Kind::drop;
  /// First and last frame affected, both included. Reads count frames from 0; reads that fail because the device is
  /// unplugged don't count.
  std::uint64_t first = 0;
  std::uint64_t last = 0;             ///< `noEnd`: all that follow; for `unplug` always `first`
  std::chrono::milliseconds time{0};  ///< for `delay`, `stall` and `unplug` (there also `forever`), otherwise 0
  cv::Size size = {};                 ///< for `size`: whole frame in pixels, otherwise 0 x 0

  bool falls(std::uint64_t frame) const { return first <= frame && frame <= last; }
  bool operator==(const Fault&) const = default;
};

/// Several may affect the same frame; they act in the order given.
using FaultScript = std::vector<Fault>;

/// Parses a script, one fault per line:
///
///     # comment, alone or at the end of a line; empty lines are ignored
///     drop 12                 one frame
///     black 20-29             from frame 20 to frame 29
///     delay 40- 15ms          frame 40 and all that follow
///     stall 50 2000ms
///     size 60-64 465x401
///     unplug 100 500ms        a single frame, at which it begins
///     unplug 200 ever
///
/// drop, duplicate, tear, grey, 16bit, empty, untouched and black take only frames; delay and stall also a time from 1
/// to 3600000 ms, unplug the same or "ever", size the size of the whole frame with sides from 1 to 8192. Words are
/// separated by spaces or tabs; frames have at most 18 digits.
///
/// Throws std::invalid_argument, with the line number, for anything else.
FaultScript parseFaults(const std::string& text);

/// The script as `parseFaults` reads it, a line for each fault.
std::string printFaults(const FaultScript& script);

/// What a random script may contain.
struct RandomFaults {
  std::uint64_t frames = 1000;             ///< faults begin and end before this frame; 1 or more
  int faults = 20;                         ///< number of faults, 0 or more
  std::chrono::milliseconds longest{500};  ///< delay, stall or time without the device; 1 ms or more
  cv::Size frameSize{1856, 800};           ///< other sizes are near it, pixels
  bool otherTypes = false;                 ///< gray and 16-bit frames, which no matcher accepts
  bool gone = false;                       ///< whether the device may be unplugged forever
};

/// A random script. The same seed and options give the same script everywhere. Throws std::invalid_argument for options
/// out of range.
FaultScript randomFaults(std::uint64_t seed, const RandomFaults& options);

}  // namespace stereo::sim
