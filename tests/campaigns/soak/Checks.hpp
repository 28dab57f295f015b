// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tests/campaigns/soak/ExpectedImages.hpp"
#include "tests/campaigns/soak/Ledger.hpp"

namespace stereo::soak {

/// Judges what one camera handed over. Each check gives an empty text if all is right, otherwise what is wrong. Any
/// thread.
class Checks {
public:
  using Stamp = std::chrono::microseconds;

  /// Images and ledger have to outlive this. `depthMode` is 1 or 2, `algorithm` 0 or 1.
  Checks(const ExpectedImages& book, const Ledger& ledger, int depthMode, int algorithm)
      : m_book(book), m_ledger(ledger), m_depthMode(depthMode), m_algorithm(algorithm) {}

  /// A timestamp is that of a published frame, not before `earliest` and not before the same reader's last one; `again`
  /// allows the same as the last one.
  std::string timestamp(Stamp timestamp, Stamp earliest, Stamp last, bool again) const;

  /// Both eyes are, to the byte, those of the frame that was published with this timestamp.
  std::string eyes(const cv::Mat& left, const cv::Mat& right, Stamp timestamp) const;
  /// The two eyes side by side.
  std::string joinedEyes(const cv::Mat& frame, Stamp timestamp) const;
  /// Perspective views of that frame's eyes.
  std::string perspectivePair(const cv::Mat& left, const cv::Mat& right, Stamp timestamp) const;
  /// Views of that frame's eyes that depth is computed from, and the left one's perspective view.
  std::string depthPair(const cv::Mat& left, const cv::Mat& right, const cv::Mat& view, Stamp timestamp) const;
  /// The disparity of that frame, with its view, and the meters made of it.
  std::string disparity(const cv::Mat& view, const cv::Mat& disparity, const cv::Mat& metric, Stamp timestamp) const;

  // What follows carries no timestamp of the disparity that it was made of. The latest disparity's timestamp was
  // `before` when the read began and `after` when it had ended.

  /// The picture of one of the disparities that were the latest in between.
  std::string coloredDepth(const cv::Mat& picture, Stamp before, Stamp after) const;
  /// The cloud of one of the disparities that came in between.
  std::string cloud(const std::vector<cv::Vec3f>& points, Stamp before, Stamp after) const;
  std::string cloud(const std::vector<PCL>& points, Stamp before, Stamp after) const;

  /// Comparisons made so far.
  std::uint64_t made() const { return m_made; }

private:
  struct Named {
    const char* name;
    const cv::Mat& expected;
    const cv::Mat& actual;
  };
  std::string compare(const std::vector<Named>& images, std::uint32_t number) const;
  const ExpectedDepth& depthOf(std::uint32_t number) const {
    return m_book.of(number).depth[m_depthMode - 1][m_algorithm];
  }
  template <typename Same>
  std::string oneOf(const char* name, bool beforeIncluded, Stamp before, Stamp after, Same same) const;

  const ExpectedImages& m_book;
  const Ledger& m_ledger;
  const int m_depthMode;
  const int m_algorithm;
  mutable std::atomic<std::uint64_t> m_made{0};
};

}  // namespace stereo::soak
