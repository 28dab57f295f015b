// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <memory>
#include <vector>

#include "StereoCamera.hpp"
#include "Unit.hpp"
#include "baseline/Difference.hpp"
#include "baseline/FisheyeMask.hpp"
#include "support/Inputs.hpp"

namespace stereo::compare {

namespace {

constexpr int radius = 464;
const cv::Size eyeSize(928, 800);

// Masked in place over and over: a mask does the same work on pixels that are black already. All take turns on the same
// pair, so that each finds it in the caches as the one before left it.
struct Pair {
  cv::Mat first = bench::picture(eyeSize, 1);
  cv::Mat second = bench::picture(eyeSize, 2);
};

using Mask = void (*)(Pair&);

void scalarCircle(Pair& pair) { baseline::convertRawFisheyeImage(radius, pair.first, pair.second); }
void libraryCircle(Pair& pair) { ::convertRawFisheyeImage(radius, pair.first, pair.second); }
void scalarEllipse(Pair& pair) { baseline::convertRawFisheyeImage(pair.first, pair.second, 0, 0, 0, 0); }
void libraryEllipse(Pair& pair) { ::convertRawFisheyeImage(pair.first, pair.second, 0, 0, 0, 0); }

Unit maskUnit(const char* name, Mask scalar, Mask library, const cv::Mat& mask, const Wanted& wanted) {
  const auto pair = std::make_shared<Pair>();
  Unit unit;
  unit.name = name;
  unit.scalar = [pair, scalar] { scalar(*pair); };
  unit.library = [pair, library] { library(*pair); };
  unit.peer = [pair, mask] {
    pair->first.setTo(cv::Scalar(), mask);
    pair->second.setTo(cv::Scalar(), mask);
  };
  unit.peerName = "setTo with a mask";
  unit.difference = [scalar, library] {
    Pair expected;
    Pair actual;
    scalar(expected);
    library(actual);
    const std::string first = baseline::difference(expected.first, actual.first);
    return first.empty() ? baseline::difference(expected.second, actual.second) : first;
  };
  unit.wanted = wanted;
  return unit;
}

// As many bytes as turn black in both images, in one piece.
void addFloor(Unit& unit, const cv::Mat& mask) {
  const auto bytes = std::make_shared<std::vector<unsigned char>>(
      static_cast<std::size_t>(cv::countNonZero(mask)) * 3 * 2, static_cast<unsigned char>(1));
  unit.floor = [bytes] {
    std::memset(bytes->data(), 0, bytes->size());
    asm volatile("" : : "r"(bytes->data()) : "memory");  // the stores are wanted, though nobody reads them
  };
  unit.floorName = "memset of the black bytes";
}

}  // namespace

void addMaskUnits(std::vector<Unit>& units) {
  const cv::Mat circle = bench::circleMask(eyeSize, radius);
  units.push_back(maskUnit("circular mask 2 x 928x800", scalarCircle, libraryCircle, circle, {10, 10, 1.5}));
  addFloor(units.back(), circle);
  units.push_back(
      maskUnit("elliptical mask 2 x 928x800", scalarEllipse, libraryEllipse, bench::ellipseMask(eyeSize), {10, 10, 0}));
}

}  // namespace stereo::compare
