// SPDX-License-Identifier: Apache-2.0
#include "Console.hpp"

#include <iostream>

namespace stereo::app {

std::ostream& progress() { return std::cerr; }

}  // namespace stereo::app
