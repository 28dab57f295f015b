// SPDX-License-Identifier: Apache-2.0
// How stereo::WideDepth is told of the judge's cameras and tasks.
#pragma once

#include "WideDepth.hpp"
#include "bench/wide/Engine.hpp"

namespace stereo::wide {

WideDepthOptions optionsOf(const Task& task);

}  // namespace stereo::wide
