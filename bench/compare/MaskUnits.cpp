// SPDX-License-Identifier: Apache-2.0
// Units of comparison: masks of the image circle.
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "StereoCamera.hpp"
#include "bench/baseline/Difference.hpp"
#include "bench/baseline/PlainFisheyeMask.hpp"
#include "bench/compare/Unit.hpp"
#include "bench/support/Inputs.hpp"

namespace stereo::compare {

namespace {

constexpr int radius = 464;
const cv::Size eyeSize(928, 800);

// Masked in place again and again: a mask does the same work on pixels that are already black. All implementations take
// turns on the same pair, so that each finds it in the caches as the previous one left it.
struct Pair {
  cv::Mat first = bench::picture(eyeSize, 1);
  cv::Mat second = bench::picture(eyeSize, 2);
};

using Mask = void (*)(Pair&);

void scalarCircle(Pair& pair) { baseline::convertRawFisheyeImage(radius, pair.first, pair.second); }
void libraryCircle(Pair& pair) { ::convertRawFisheyeImage(radius, pair.first, pair.second); }
void scalarEllipse(Pair& pair) { baseline::convertRawFisheyeImage(pair.first, pair.second, 0, 0, 0, 0); }
void libraryEllipse(Pair& pair) { ::convertRawFisheyeImage(pair.first, pair.second, 0, 0, 0, 0); }

Unit maskUnit(const std::shared_ptr<Pair>& pair, const char* name, Mask scalar, Mask library, const cv::Mat& mask,
              const Targets& targets) {
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
  unit.targets = targets;
  return unit;
}

// Ranges of memory that become black.
using Ranges = std::vector<std::pair<unsigned char*, std::size_t>>;

void addRanges(cv::Mat& image, const cv::Mat& mask, Ranges& ranges) {
  const unsigned char* end = nullptr;
  for (int i = 0; i < mask.rows; ++i) {
    for (int j = 0; j < mask.cols; ++j) {
      if (mask.at<unsigned char>(i, j) == 0) {
        continue;
      }
      auto* const pixel = reinterpret_cast<unsigned char*>(image.ptr<cv::Vec3b>(i) + j);
      if (pixel == end) {
        ranges.back().second += 3;
      } else {
        ranges.emplace_back(pixel, 3);
      }
      end = pixel + 3;
    }
  }
}

// Fills the black bytes of the pair in place; their ranges are known beforehand.
std::function<void()> floorInPlace(const std::shared_ptr<Pair>& pair, const cv::Mat& mask) {
  Ranges ranges;
  addRanges(pair->first, mask, ranges);
  addRanges(pair->second, mask, ranges);
  return [pair, ranges] {
    for (const auto& [start, bytes] : ranges) {
      std::memset(start, 0, bytes);
    }
  };
}

// Fills as many bytes in one piece of private memory.
std::function<void()> floorInOnePiece(const cv::Mat& mask) {
  const auto bytes = std::make_shared<std::vector<unsigned char>>(
      static_cast<std::size_t>(cv::countNonZero(mask)) * 3 * 2, static_cast<unsigned char>(1));
  return [bytes] {
    std::memset(bytes->data(), 0, bytes->size());
    asm volatile("" : : "r"(bytes->data()) : "memory");  // keeps the stores, which nothing reads
  };
}

}  // namespace

void addMaskUnits(std::vector<Unit>& units) {
  const auto pair = std::make_shared<Pair>();
  const cv::Mat circle = bench::circleMask(eyeSize, radius);
  units.push_back(maskUnit(pair, "circular mask 2 x 928x800", scalarCircle, libraryCircle, circle, {10, 10, 1.5}));
  units.back().floor = floorInPlace(pair, circle);
  units.back().floorName = "memset of the black bytes";
  Unit onePiece;
  onePiece.name = "circular mask, bytes in one piece";
  onePiece.library = [pair] { libraryCircle(*pair); };
  onePiece.floor = floorInOnePiece(circle);
  onePiece.floorName = "memset of as many bytes in one piece";
  onePiece.difference = units.back().difference;
  units.push_back(onePiece);
  units.push_back(maskUnit(pair, "elliptical mask 2 x 928x800", scalarEllipse, libraryEllipse,
                           bench::ellipseMask(eyeSize), {10, 10, 0}));
}

}  // namespace stereo::compare
