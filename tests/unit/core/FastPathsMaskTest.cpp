// SPDX-License-Identifier: Apache-2.0
// Masks of the image circle, and the pixels' way through a pass of the capture worker, against their plain forms.
#include <cmath>

#include "StereoCamera.hpp"
#include "bench/baseline/PlainCapturePass.hpp"
#include "bench/baseline/PlainFisheyeMask.hpp"
#include "src/core/CapturePass.hpp"
#include "tests/support/Images.hpp"
#include "tests/unit/core/FastPaths.hpp"

using namespace stereo::test;
namespace baseline = stereo::baseline;
namespace core = stereo::core;

namespace {

constexpr int most = std::numeric_limits<int>::max();

// Masks copies of both images, in parts of larger buffers, by `plain` and then by `fast`.
template <typename Plain, typename Fast>
void expectSameMask(const cv::Mat& first, const cv::Mat& second, const Plain& plain, const Fast& fast,
                    const std::string& what) {
  cv::Mat firstExpected = copyOf(first);
  cv::Mat secondExpected = copyOf(second);
  plain(firstExpected, secondExpected);
  withEachInstructionSet([&] {
    const Framed firstFrame(first);
    const Framed secondFrame(second);
    cv::Mat firstMasked = firstFrame.inside();
    cv::Mat secondMasked = secondFrame.inside();
    fast(firstMasked, secondMasked);
    EXPECT_TRUE(same(firstExpected, firstMasked)) << what << " first " << first.size();
    EXPECT_TRUE(same(secondExpected, secondMasked)) << what << " second " << second.size();
    EXPECT_TRUE(firstFrame.untouchedOutside()) << what;
    EXPECT_TRUE(secondFrame.untouchedOutside()) << what;

    cv::Mat firstWhole = copyOf(first);
    cv::Mat secondWhole = copyOf(second);
    fast(firstWhole, secondWhole);
    EXPECT_TRUE(same(firstExpected, firstWhole)) << what << " continuous, first " << first.size();
    EXPECT_TRUE(same(secondExpected, secondWhole)) << what << " continuous, second " << second.size();
  });
}

void expectSameCircle(int radius, const cv::Mat& first, const cv::Mat& second) {
  expectSameMask(
      first, second, [&](cv::Mat& a, cv::Mat& b) { baseline::convertRawFisheyeImage(radius, a, b); },
      [&](cv::Mat& a, cv::Mat& b) { convertRawFisheyeImage(radius, a, b); }, "radius " + std::to_string(radius));
}

void expectSameEllipse(const cv::Mat& first, const cv::Mat& second, const cv::Vec4f& s) {
  std::ostringstream what;
  what.precision(9);
  what << "shifts " << s;
  expectSameMask(
      first, second, [&](cv::Mat& a, cv::Mat& b) { baseline::convertRawFisheyeImage(a, b, s[0], s[1], s[2], s[3]); },
      [&](cv::Mat& a, cv::Mat& b) { convertRawFisheyeImage(a, b, s[0], s[1], s[2], s[3]); }, what.str());
}

// Shifts round those that a lens may have, and the exceptional ones.
cv::Vec4f someShifts(cv::RNG& random, cv::Size size) {
  const auto hw = static_cast<float>(size.width >> 1);
  const auto hh = static_cast<float>(size.height >> 1);
  const std::vector<float> exceptional = {0,     -hw,   -hh,   -hw + 0.5F, -hh - 1,  1e-20F,    denormal,  1e6F,
                                          -1e6F, 1e19F, 3e38F, -3e38F,     infinity, -infinity, notANumber};
  cv::Vec4f shifts;
  for (int k = 0; k < 4; ++k) {
    const double reach = k % 2 == 0 ? hh : hw;
    shifts[k] =
        chance(random, 0.3) ? pick(random, exceptional) : static_cast<float>(between(random, -1.5, 1.5) * reach);
    if (chance(random, 0.3)) {
      shifts[k] = std::round(shifts[k]);  // pixels exactly on the ellipse
    }
  }
  return shifts;
}

}  // namespace

// So high that the square of a row's distance does not fit 32 bits.
TEST(FastCircle, EqualsThePlainFormInTallImages) {
  const cv::Mat image = noise({3, 100001}, 1);
  for (const int radius : {0, 100, 46341, 50000, 60000}) {
    expectSameCircle(radius, image, image.clone());
  }
}

// The root that says where a span ends is off by a column here, and only the columns next to the end show it.
TEST(FastEllipse, EqualsThePlainFormWhereTheRootIsOff) {
  const cv::Mat wide = noise({87, 4}, 1);
  expectSameEllipse(wide, wide.clone(), {-84.0F, 1.95501e-38F, 29.0F, -0.985631F});
  const cv::Mat other = noise({67, 10}, 2);
  expectSameEllipse(other, other.clone(), {50.5088F, -1.0F, -5.22276e-06F, 2.28859e-40F});
  // Numbers of all magnitudes.
  cv::RNG random(3);
  const auto ofAnySize = [&] {
    return static_cast<float>(std::ldexp(between(random, -1, 1), random.uniform(-140, 128)));
  };
  for (int n = 0; n < 3000; ++n) {
    const cv::Mat image = noise({random.uniform(1, 90), random.uniform(1, 12)}, n);
    expectSameEllipse(image, image.clone(), {ofAnySize(), ofAnySize(), ofAnySize(), ofAnySize()});
  }
}

TEST(FastCircle, EqualsThePlainFormForAnyRadius) {
  for (const cv::Size size : smallSizes()) {
    const cv::Mat first = noise(size, 1);
    const cv::Mat second = noise(size, 2);
    const int diagonal = static_cast<int>(std::hypot(size.width, size.height));
    for (int radius = -3; radius <= diagonal + 3; ++radius) {
      expectSameCircle(radius, first, second);
    }
    for (const int radius : {-46341, 4096, 4097, 46340, 46341, 65536, 1 << 30, most - 1, most, -most, -most - 1}) {
      expectSameCircle(radius, first, second);
    }
  }
}

TEST(FastCircle, EqualsThePlainFormOnWholeEyes) {
  for (const cv::Size size : realSizes()) {
    const cv::Mat first = noise(size, 1);
    const cv::Mat second = noise(size, 2);
    for (const int radius : {-1, 0, 1, 100, 231, 232, 399, 400, 401, 463, 464, 465, 611, 612, 613, 2000}) {
      expectSameCircle(radius, first, second);
    }
  }
}

TEST(FastCircle, EqualsThePlainFormOnLongRowsAndColumns) {
  for (const cv::Size size : {cv::Size(5003, 3), cv::Size(3, 5003)}) {
    for (const int radius : {0, 1, 2, 1000, 2500, 2501, 2502, 3000}) {
      expectSameCircle(radius, noise(size, 1), noise(size, 2));
    }
  }
}

TEST(FastEllipse, EqualsThePlainFormInSmallImages) {
  cv::RNG random(1);
  for (const cv::Size size : smallSizes()) {
    const cv::Mat first = noise(size, 1);
    const cv::Mat second = noise(size, 2);
    expectSameEllipse(first, second, {0, 0, 0, 0});
    for (int k = 0; k < 500; ++k) {
      expectSameEllipse(first, second, someShifts(random, size));
    }
  }
}

TEST(FastEllipse, EqualsThePlainFormOnWholeEyes) {
  cv::RNG random(2);
  for (const cv::Size size : realSizes()) {
    const cv::Mat first = noise(size, 1);
    const cv::Mat second = noise(size, 2);
    expectSameEllipse(first, second, {0, 0, 0, 0});
    for (int k = 0; k < 12; ++k) {
      expectSameEllipse(first, second, someShifts(random, size));
    }
  }
}

TEST(FastEllipse, EqualsThePlainFormWhereverTheEdgeLies) {
  // A few long rows out of an ellipse of any height, its edge between any two columns.
  cv::RNG random(4);
  const cv::Size size(928, 3);
  const cv::Mat first = noise(size, 1);
  const cv::Mat second = noise(size, 2);
  for (int k = 0; k < 400; ++k) {
    const auto height = static_cast<float>(between(random, 1, 600));
    const auto width = static_cast<float>(between(random, -463, 200));
    const auto column = static_cast<float>(between(random, -200, 200));
    const auto row = static_cast<float>(between(random, -1.1, 1.1) * height);
    const bool whole = chance(random, 0.5);
    expectSameEllipse(first, second,
                      whole ? cv::Vec4f(std::round(height), std::round(width), std::round(column), std::round(row))
                            : cv::Vec4f(height, width, column, row));
  }
}

TEST(FastMasks, LeaveWhatTheSecondImageHasBeyondTheFirst) {
  cv::RNG random(3);
  for (const cv::Size size : smallSizes()) {
    const cv::Mat first = noise(size, 1);
    const cv::Mat second = noise({size.width + 9, size.height + 4}, 2);
    for (const int radius : {0, 2, 7, 16}) {
      expectSameCircle(radius, first, second);
    }
    for (int k = 0; k < 10; ++k) {
      expectSameEllipse(first, second, someShifts(random, size));
    }
  }
}

TEST(FastCapturePass, EqualsThePlainFormAndLeavesReadersTheirPixels) {
  for (const cv::Size size : {cv::Size(1856, 800), cv::Size(928, 400), cv::Size(75, 29), cv::Size(2, 1)}) {
    const cv::Mat frames[] = {noise(size, 1), noise(size, 2), noise(size, 3)};
    const int radius = size.width / 5;
    baseline::CapturePass plain;
    withEachInstructionSet([&] {
      core::CapturePass pass;
      cv::Mat publishedLeft, publishedRight;
      cv::Mat heldLeft, heldCopy;  // a reader's header of the pass before, and what it saw
      for (const cv::Mat& frame : frames) {
        cv::Mat expectedLeft, expectedRight;
        plain.run(frame, radius, expectedLeft, expectedRight);
        pass.process(frame, radius);
        pass.publish(publishedLeft, publishedRight);
        EXPECT_TRUE(same(expectedLeft, publishedLeft)) << size;
        EXPECT_TRUE(same(expectedRight, publishedRight)) << size;
        EXPECT_NE(publishedLeft.data, pass.left().data);
        if (!heldLeft.empty()) {
          EXPECT_TRUE(same(heldCopy, heldLeft)) << size;
        }
        heldLeft = publishedLeft;
        heldCopy = publishedLeft.clone();
      }
    });
  }
}
