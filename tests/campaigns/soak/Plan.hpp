// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <random>
#include <string>

namespace stereo::soak {

/// How one camera lives.
struct Plan {
  bool fullSize = true;         ///< 1856 x 800, otherwise 928 x 400
  int depthMode = 1;            ///< 1 or 2
  int algorithm = 1;            ///< 0 or 1
  int streamMode = -1;          ///< -1: not streaming
  bool disparityFirst = false;  ///< its worker is started before the capture worker
  bool captureEndsFirst = false;
  bool isLong = false;
};

/// The lives of a run by their number. The five streams come round within ten lives. All else is drawn from the number,
/// each choice for itself, so that every two of them come together in every way, sooner or later.
inline Plan planOf(int life, bool streams) {
  Plan plan;
  plan.streamMode = streams && life % 2 == 1 ? life / 2 % 5 : -1;
  std::mt19937 draw(static_cast<std::uint32_t>(life));
  plan.fullSize = draw() % 5 != 0;
  plan.algorithm = draw() % 4 == 0 ? 0 : 1;
  plan.disparityFirst = draw() % 3 == 0;
  plan.captureEndsFirst = draw() % 3 == 0;
  // The fifth stream is of depth, which is streamed in one of the modes only.
  const int depthMode = 1 + static_cast<int>(draw() % 2);
  plan.depthMode = plan.streamMode == 4 ? 2 : depthMode;
  plan.isLong = life % 12 == 11 || life % 24 == 18;
  return plan;
}

/// What is done wrong on purpose, so that it can be seen to be noticed.
struct Breaks {
  bool tear = false;        ///< the device tears frames
  bool restart = false;     ///< whoever reads colored depth is not told when the disparity worker goes on
  bool image = false;       ///< the consumer is told of other images than will come
  bool memory = false;      ///< four megabytes are lost with every life
  bool descriptor = false;  ///< one is lost with every life
  bool thread = false;      ///< one is lost with every life
  bool segment = false;     ///< one is lost with every life
};

struct Options {
  double minutes = 60;
  int lives = 0;              ///< if not 0, the run ends after so many instead
  double lifeSeconds = 2;     ///< least length of a life, but for the long ones
  int reads = 20;             ///< least reads of each product before and after each restart of the disparity worker
  int images = 10;            ///< least images that the consumer takes in a life
  double settleSeconds = 40;  ///< for what an ended life leaves to end by itself
  int warmUpLives = 12;       ///< that are not judged
  int pictures = 6;           ///< that the device shows in turn
  bool streams = true;
  std::uint32_t seed = 1;
  std::string json;  ///< file for the figures, if any
  Breaks breaks;
};

}  // namespace stereo::soak
