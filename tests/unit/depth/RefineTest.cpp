// SPDX-License-Identifier: Apache-2.0
// The refinement on patterns whose shift is known.
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "src/depth/Filter.hpp"
#include "src/depth/Refine.hpp"
#include "tests/unit/core/FastPaths.hpp"

using namespace stereo::depth;
using stereo::test::withEachInstructionSet;

namespace {

constexpr int width = 64;
constexpr int height = 24;
constexpr int first = 40;  // column in the right view of the left view's first sample

double pattern(double x, double y) {
  return 128 + 30 * std::sin(0.61 * x + 0.3 * y) + 25 * std::sin(0.37 * x - 0.7 * y) + 15 * std::sin(1.1 * x + 0.2 * y);
}

// Two views with two samples a pixel; the disparity of a pixel is `disparity(x)` columns.
struct Pattern {
  std::vector<std::uint16_t> left;
  std::vector<std::uint16_t> right;
  std::vector<std::uint8_t> seen;
  RefineInput input;

  explicit Pattern(double disparity, double gain = 1.0, double offset = 0.0) {
    const int rightWidth = 2 * width + 60;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < 2 * width; ++x) {
        left.push_back(static_cast<std::uint16_t>(std::lround(16 * pattern(x, y))));
      }
      for (int x = 0; x < rightWidth; ++x) {
        const double value = pattern(x - first + 2 * disparity, y);
        right.push_back(static_cast<std::uint16_t>(std::lround(16 * (128 + offset + gain * (value - 128)))));
      }
    }
    seen.assign(right.size(), 255);
    input.width = width;
    input.height = height;
    input.samples = 2;
    input.left = left.data();
    input.right = right.data();
    input.rightSeen = seen.data();
    input.leftWidth = 2 * width;
    input.rightWidth = rightWidth;
    input.rightFirst = first;
  }
};

struct Refined {
  Plane disparity;
  RefineResult result;

  Refined(const Pattern& pattern, float initial) {
    RefineTerms terms;
    terms.create(width, height);
    result.create(width, height);
    disparity.create(width, height, noDisparity);
    for (int y = 0; y < height; ++y) {
      std::fill_n(disparity.row(y), width, initial);
    }
    for (int pass = 0; pass < 3; ++pass) {
      refineTerms(pattern.input, 0, height, disparity, terms);
      refineSolve(pattern.input, 0, height, disparity, terms, 1.0F, {1, 1}, result);
      std::swap(disparity, result.disparity);
    }
  }
};

}  // namespace

TEST(WideRefine, FindsAShiftToAFewHundredths) {
  for (const double shift : {8.0, 8.3, 8.5, 7.62}) {
    const Refined refined(Pattern(shift), 8.0F);
    for (int y = 6; y < 18; ++y) {
      for (int x = 12; x < 52; ++x) {
        ASSERT_NEAR(refined.disparity.row(y)[x], shift, 0.04) << x << ", " << y;
        ASSERT_GT(refined.result.correlation.row(y)[x], 0.98F);
        ASSERT_LT(refined.result.sigma.row(y)[x], 0.05F);
      }
    }
  }
}

TEST(WideRefine, BrightnessAndContrastOfAnEyeDoNotMatter) {
  const Refined refined(Pattern(8.3, 0.8, 20), 8.0F);
  for (int x = 12; x < 52; ++x) {
    EXPECT_NEAR(refined.disparity.row(12)[x], 8.3, 0.03);
  }
}

TEST(WideRefine, AThingNarrowerThanTheWindowDoesNotFit) {
  Pattern pattern(8.0);
  constexpr int thing = 30;  // one column wide, and elsewhere in the right view
  for (int y = 0; y < height; ++y) {
    for (const int sample : {2 * thing, 2 * thing + 1}) {
      pattern.left[static_cast<std::size_t>(y * 2 * width + sample)] =
          static_cast<std::uint16_t>(y % 4 < 2 ? 3200 : 800);
    }
  }
  const Refined refined(pattern, 8.0F);
  for (int y = 6; y < 18; ++y) {
    EXPECT_GT(refined.result.misfit.row(y)[thing], 1.0F);
    EXPECT_LT(refined.result.misfit.row(y)[thing - 8], 0.05F);
    EXPECT_LT(refined.result.misfit.row(y)[thing + 2], 0.3F) << "beside it, much of the window is the thing's";
  }
}

TEST(WideRefine, WhatTheRightEyeDoesNotSeeHasNoDisparity) {
  Pattern pattern(8.3);
  for (int y = 0; y < height; ++y) {
    std::fill_n(pattern.seen.begin() + y * pattern.input.rightWidth, 70, static_cast<std::uint8_t>(0));
  }
  const Refined refined(pattern, 8.0F);
  // The first sample that is seen is the pixel's whose match is at 70: (70 - 40) / 2 + 8.
  EXPECT_EQ(refined.disparity.row(12)[20], noDisparity);
  EXPECT_NE(refined.disparity.row(12)[26], noDisparity);
}

TEST(WideRefine, IsTheSameWithEachInstructionSet) {
  const Pattern pattern(8.3);
  std::vector<float> before;
  withEachInstructionSet([&] {
    const Refined refined(pattern, 8.0F);
    Plane smoothed;
    Plane fused;
    Plane weight;
    smoothed.create(width, height, 0.0F);
    fused.create(width, height, 0.0F);
    weight.create(width, height, 0.0F);
    smoothDisparity(width, 0, height, refined.disparity, 4, 1.0F, smoothed);
    fuseDisparity(width, 0, height, smoothed, refined.result.weight, {4, 0.001F, 0.0005F}, fused, weight);
    std::vector<float> values;
    for (int y = 0; y < height; ++y) {
      for (const Plane* const plane : std::initializer_list<const Plane*>{
               &refined.disparity, &refined.result.sigma, &refined.result.correlation, &smoothed, &fused, &weight}) {
        values.insert(values.end(), plane->row(y), plane->row(y) + width);
      }
    }
    if (!before.empty()) {
      EXPECT_EQ(values, before);
    }
    before = values;
  });
}

TEST(WideRefine, AveragingKeepsPlanesUpToTheirEdges) {
  Plane plane;
  Plane smoothed;
  plane.create(width, height, noDisparity);
  smoothed.create(width, height, 0.0F);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      plane.row(y)[x] = x < 30 ? 20.0F + 0.1F * static_cast<float>(x) + 0.05F * static_cast<float>(y) : 5.0F;
    }
  }
  smoothDisparity(width, 0, height, plane, 4, 1.0F, smoothed);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      EXPECT_NEAR(smoothed.row(y)[x], plane.row(y)[x], 1e-4);
    }
  }
}

TEST(WideFilter, FindsWhatSomethingNearerHides) {
  Plane plane;
  plane.create(width, 1, 2.0F);
  std::fill_n(plane.row(0) + 30, 10, 12.0F);  // lands on columns 18 to 27, as pixels 20 to 29 do
  std::vector<std::uint8_t> hidden(width);
  findHidden(plane, width, 0, 1, 1.5F, hidden.data());
  for (int x = 0; x < width; ++x) {
    EXPECT_EQ(hidden[static_cast<std::size_t>(x)] != 0, x >= 20 && x < 30) << x;
  }
}

TEST(WideFilter, FindsPixelsBesideSomethingNearer) {
  Plane plane;
  plane.create(width, height, 2.0F);
  plane.row(10)[30] = 12.0F;
  plane.row(15)[50] = 4.0F;  // below the least that counts
  std::vector<std::uint8_t> beside(width * height, 0);
  findBeside(plane, plane, width, 0, height, {3, 10.0F, 1.2F, 1.0F}, beside.data());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool isNear = std::abs(x - 30) <= 3 && std::abs(y - 10) <= 3 && !(x == 30 && y == 10);
      EXPECT_EQ(beside[static_cast<std::size_t>(y * width + x)] != 0, isNear) << x << ", " << y;
    }
  }
}

TEST(WideFilter, FindsSmallSurfaces) {
  Plane plane;
  plane.create(width, height, noDisparity);
  for (int y = 2; y < 12; ++y) {
    std::fill_n(plane.row(y) + 5, 10, 8.0F + 0.3F * static_cast<float>(y));  // 100 pixels
    plane.row(y)[30] = 3.0F;                                                 // 10
  }
  SpeckFinder finder(width, height);
  std::vector<std::uint8_t> specks(width * height);
  finder.find(plane, 1.0F, 20, specks.data());
  EXPECT_EQ(specks[5 * width + 7], 0);
  EXPECT_EQ(specks[5 * width + 30], 255);
  EXPECT_EQ(specks[20 * width + 40], 0);
}
