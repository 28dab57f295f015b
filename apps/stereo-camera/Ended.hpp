// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Failure.hpp"

namespace stereo::app {

/// Nothing more comes, and nothing is wrong: a recording that is played once is over. Whoever can make a result of what
/// came until then catches it; otherwise the program ends with it as with any failure.
class Ended : public Failure {
public:
  Ended() : Failure(ExitCode::noFrames, "the recording is over, and was too short for a result") {}
};

}  // namespace stereo::app
