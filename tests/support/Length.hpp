// SPDX-License-Identifier: Apache-2.0
// How long the campaigns go on: a moment among all the other tests, whole where the label "long" is taken.
#pragma once

#include <cstdlib>

namespace stereo::test {

/// `moment`, or `whole` where STEREO_CAMERA_LONG_TESTS is set.
template <typename T>
T byLength(T moment, T whole) {
  return std::getenv("STEREO_CAMERA_LONG_TESTS") == nullptr ? moment : whole;
}

}  // namespace stereo::test
