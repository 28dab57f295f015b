// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::sim {

/// What goes wrong with a device, from one frame to another.
struct Fault {
  enum class Kind {
    drop,       ///< the frame is lost: the read fails, its output emptied
    delay,      ///< the device delivers in time, the answer comes `time` later
    duplicate,  ///< the picture delivered before comes once more
    tear,       ///< upper half of this picture, lower half of the one delivered before
    size,       ///< another resolution, `size`
    grey,       ///< one channel instead of three
    deep,       ///< 16 bits a channel instead of 8
    empty,      ///< the read succeeds with an empty picture
    untouched,  ///< the read succeeds and leaves its output as it came
    black,      ///< all pixels 0
    stall,      ///< no answer for `time`, the device isn't even asked meanwhile
    unplug,     ///< from this frame on the device is gone for `time`: reads fail at once
  };
  static constexpr std::uint64_t noEnd = std::numeric_limits<std::uint64_t>::max();
  static constexpr std::chrono::milliseconds forever = std::chrono::milliseconds::max();

  Kind kind = Kind::drop;
  /// First and last frame that it falls on, both included. Frames are counted from 0 by the reads of a device that is
  /// plugged in; reads that fail because it is unplugged don't count, however many there are.
  std::uint64_t first = 0;
  std::uint64_t last = 0;             ///< `noEnd`: all that follow. Of `unplug` always `first`.
  std::chrono::milliseconds time{0};  ///< of `delay`, `stall` and `unplug` (there also `forever`), otherwise 0
  cv::Size size = {};                 ///< of `size`, whole frame in pixels, otherwise 0 x 0

  bool falls(std::uint64_t frame) const { return first <= frame && frame <= last; }
  bool operator==(const Fault&) const = default;
};

/// Several may fall on the same frame; they act in the order given.
using FaultScript = std::vector<Fault>;

/// Reads a script, one fault a line:
///
///     # comment, alone or at the end of a line; empty lines are passed over
///     drop 12                 one frame
///     black 20-29             from frame 20 to frame 29
///     delay 40- 15ms          frame 40 and all that follow
///     stall 50 2000ms
///     size 60-64 465x401
///     unplug 100 500ms        a single frame, at which it begins
///     unplug 200 ever
///
/// drop, duplicate, tear, grey, 16bit, empty, untouched and black take frames alone; delay and stall a time from 1 to
/// 3600000 ms as well, unplug the same or "ever", size the whole frame's size with sides from 1 to 8192. Words are
/// separated by blanks or tabs; frames have at most 18 digits.
///
/// Throws std::invalid_argument, with the number of the line, for anything else.
FaultScript parseFaults(const std::string& text);

/// The script as `parseFaults` reads it, a line each.
std::string printFaults(const FaultScript& script);

/// What a random script may contain.
struct RandomFaults {
  std::uint64_t frames = 1000;             ///< faults begin and end before this frame; 1 or more
  int faults = 20;                         ///< how many, 0 or more
  std::chrono::milliseconds longest{500};  ///< of delays, stalls and times without the device; 1 ms or more
  cv::Size frameSize{1856, 800};           ///< about which the other sizes lie, pixels
  bool otherTypes = false;                 ///< grey and 16-bit frames, which no matcher takes
  bool gone = false;                       ///< whether the device may be unplugged for ever
};

/// A script drawn from a seed: the same seed and options give the same script everywhere. Throws std::invalid_argument
/// for options out of range.
FaultScript randomFaults(std::uint64_t seed, const RandomFaults& options);

}  // namespace stereo::sim
