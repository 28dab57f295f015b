// SPDX-License-Identifier: Apache-2.0
#include "sim/BoardCamera.hpp"

#include <memory>

namespace stereo::sim {

BoardCamera::BoardCamera(const BoardCapture::Options& options)
    : sources::VirtualCamera(std::make_unique<BoardCapture>(Rig(options.seed), options), options.rate) {
  setSerialNumber(static_cast<int>(options.seed));
  setRawFrameSize(options.frameSize);
}

BoardCamera::~BoardCamera() { stopWorkers(); }

}  // namespace stereo::sim
