// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/Checks.hpp"

#include <cstring>
#include <optional>

#include "bench/baseline/Difference.hpp"
#include "tests/campaigns/soak/Numbering.hpp"

namespace stereo::soak {

namespace {

const char* const unknownTimestamp = "a stamp that no published frame has";

// Quick where all is right. What differs in its bits may still be the same: two NaN are.
std::string differenceOf(const cv::Mat& expected, const cv::Mat& actual) {
  bool same = expected.size() == actual.size() && expected.type() == actual.type();
  for (int row = 0; same && row < expected.rows; ++row) {
    same = std::memcmp(expected.ptr(row), actual.ptr(row),
                       static_cast<std::size_t>(expected.cols) * expected.elemSize()) == 0;
  }
  return same ? std::string() : baseline::difference(expected, actual);
}

}  // namespace

std::string Checks::timestamp(Stamp timestamp, Stamp earliest, Stamp last, bool again) const {
  ++m_made;
  const std::optional<Delivery> frame = m_ledger.published(timestamp);
  if (!frame) {
    return unknownTimestamp;
  }
  if (timestamp < earliest) {
    return "frame " + std::to_string(frame->number) + ", published before the read began";
  }
  if (timestamp < last || (timestamp == last && !again)) {
    return "frame " + std::to_string(frame->number) + ", no newer than the read before";
  }
  return {};
}

std::string Checks::eyes(const cv::Mat& left, const cv::Mat& right, Stamp timestamp) const {
  const std::optional<Delivery> frame = m_ledger.published(timestamp);
  if (!frame) {
    return unknownTimestamp;
  }
  const Picture& picture = m_book.of(frame->number);
  for (int eye = 0; eye < 2; ++eye) {
    ++m_made;
    const std::string difference = differenceOfEye(picture.eye[eye], frame->number, eye == 0 ? left : right);
    if (!difference.empty()) {
      return std::string(eye == 0 ? "left eye: " : "right eye: ") + difference;
    }
  }
  return {};
}

std::string Checks::joinedEyes(const cv::Mat& frame, Stamp timestamp) const {
  const int width = frame.cols / 2;
  return eyes(frame.colRange(0, width), frame.colRange(width, frame.cols), timestamp);
}

std::string Checks::compare(const std::vector<Named>& images, std::uint32_t number) const {
  for (const Named& each : images) {
    ++m_made;
    const std::string difference = differenceOf(each.expected, each.actual);
    if (!difference.empty()) {
      return std::string(each.name) + " is not frame " + std::to_string(number) + "'s: " + difference;
    }
  }
  return {};
}

std::string Checks::perspectivePair(const cv::Mat& left, const cv::Mat& right, Stamp timestamp) const {
  const std::optional<Delivery> frame = m_ledger.published(timestamp);
  if (!frame) {
    return unknownTimestamp;
  }
  const Picture& picture = m_book.of(frame->number);
  return compare({{"left view", picture.perspective[0], left}, {"right view", picture.perspective[1], right}},
                 frame->number);
}

std::string Checks::depthPair(const cv::Mat& left, const cv::Mat& right, const cv::Mat& view, Stamp timestamp) const {
  const std::optional<Delivery> frame = m_ledger.published(timestamp);
  if (!frame) {
    return unknownTimestamp;
  }
  const Picture& picture = m_book.of(frame->number);
  const cv::Mat(&pair)[2] = m_depthMode == 1 ? picture.lonLat : picture.perspective;
  return compare(
      {{"left view", pair[0], left}, {"right view", pair[1], right}, {"third view", picture.perspective[0], view}},
      frame->number);
}

std::string Checks::disparity(const cv::Mat& view, const cv::Mat& disparity, const cv::Mat& metric,
                              Stamp timestamp) const {
  const std::optional<Delivery> frame = m_ledger.published(timestamp);
  if (!frame) {
    return unknownTimestamp;
  }
  const ExpectedDepth& expected = depthOf(frame->number);
  return compare({{"view", m_book.of(frame->number).perspective[0], view},
                  {"disparity", expected.disparity, disparity},
                  {"metric depth", expected.metric, metric}},
                 frame->number);
}

template <typename Same>
std::string Checks::oneOf(const char* name, bool beforeIncluded, Stamp before, Stamp after, Same same) const {
  ++m_made;
  const std::optional<Delivery> oldest = m_ledger.published(before);
  std::string numbers;
  for (const std::uint32_t number : m_ledger.matchedBetween(before, after)) {
    if (!beforeIncluded && oldest && oldest->number == number) {
      continue;
    }
    if (same(depthOf(number))) {
      return {};
    }
    numbers += ' ';
    numbers += std::to_string(number);
  }
  return std::string(name) + " that is none of the possible frames'" + (numbers.empty() ? ": there are none" : numbers);
}

std::string Checks::coloredDepth(const cv::Mat& picture, Stamp before, Stamp after) const {
  return oneOf("a coloured depth", true, before, after,
               [&](const ExpectedDepth& expected) { return differenceOf(expected.colored, picture).empty(); });
}

std::string Checks::cloud(const std::vector<cv::Vec3f>& points, Stamp before, Stamp after) const {
  return oneOf("a cloud", false, before, after, [&](const ExpectedDepth& expected) {
    return baseline::difference(expected.plainCloud, points).empty();
  });
}

std::string Checks::cloud(const std::vector<PCL>& points, Stamp before, Stamp after) const {
  return oneOf("a coloured cloud", false, before, after, [&](const ExpectedDepth& expected) {
    return baseline::difference(expected.coloredCloud, points).empty();
  });
}

}  // namespace stereo::soak
