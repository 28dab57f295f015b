// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace stereo::sim::test {

struct Match {
  cv::Point2f left;
  cv::Point2f right;
};

/// Corners of the left picture found again in the right one to a fraction of a pixel, and from there back where they
/// started to within 0.1 pixel.
inline std::vector<Match> matchPictures(const cv::Mat& left, const cv::Mat& right) {
  cv::Mat grayLeft;
  cv::Mat grayRight;
  cv::cvtColor(left, grayLeft, cv::COLOR_BGR2GRAY);
  cv::cvtColor(right, grayRight, cv::COLOR_BGR2GRAY);
  std::vector<cv::Point2f> corners;
  cv::goodFeaturesToTrack(grayLeft, corners, 1500, 0.005, 5.0);
  if (corners.empty()) {
    return {};
  }
  const cv::TermCriteria criteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 50, 0.001);
  std::vector<cv::Point2f> there;
  std::vector<cv::Point2f> back;
  std::vector<unsigned char> foundThere;
  std::vector<unsigned char> foundBack;
  std::vector<float> error;
  cv::calcOpticalFlowPyrLK(grayLeft, grayRight, corners, there, foundThere, error, {21, 21}, 4, criteria);
  cv::calcOpticalFlowPyrLK(grayRight, grayLeft, there, back, foundBack, error, {21, 21}, 4, criteria);
  std::vector<Match> matches;
  for (std::size_t i = 0; i < corners.size(); ++i) {
    if (foundThere[i] != 0 && foundBack[i] != 0 && cv::norm(back[i] - corners[i]) < 0.1) {
      matches.push_back({corners[i], there[i]});
    }
  }
  return matches;
}

inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Median of the absolute difference in rows, pixels.
inline double medianRowDifference(const std::vector<Match>& matches) {
  std::vector<double> differences;
  for (const Match& match : matches) {
    differences.push_back(std::abs(match.left.y - match.right.y));
  }
  return median(std::move(differences));
}

}  // namespace stereo::sim::test
