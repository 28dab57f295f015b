// SPDX-License-Identifier: Apache-2.0
// A program of its own: it counts every allocation of the process.
#include <gtest/gtest.h>

#include "bench/compare/AllocationCount.hpp"
#include "tests/unit/depth/SimulatedEyes.hpp"

using namespace stereo;

TEST(WideDepthAllocation, AFrameIntoKeptImagesAllocatesNothing) {
  if (!compare::countsAllocations()) {
    GTEST_SKIP() << "not counted in this build";
  }
  const test::SimulatedEyes eyes;
  const test::SimulatedEyes::Pair pair = eyes.at(0.0);
  for (const int enlarged : {1, 3}) {
    WideDepthOptions options = test::smallView();
    options.size *= enlarged;
    options.fuse = true;
    WideDepth depth(eyes.calibration(), test::eyeSize, options);
    WideDepthImage image;
    for (int frame = 0; frame < 3; ++frame) {
      depth.compute(pair.left, pair.right, image);
    }
    const unsigned char* const range = image.range.data;
    const std::uint64_t before = compare::allocations();
    for (int frame = 0; frame < 5; ++frame) {
      depth.compute(pair.left, pair.right, image);
    }
    EXPECT_EQ(compare::allocations() - before, 0U);
    EXPECT_EQ(image.range.data, range);
  }
}
