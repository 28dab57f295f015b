// SPDX-License-Identifier: Apache-2.0
// From a rectified pair to its disparity.
#include "src/core/Matcher.hpp"

#include <opencv2/imgproc.hpp>

namespace stereo::core {

namespace {

constexpr int semiGlobalMatching = 0;
constexpr int blockMatching = 1;
constexpr int numDisparities = 32;
constexpr int blockSize = 9;
constexpr double pixelsPerStep = 0.0625;  // the matchers count in sixteenths of a pixel

cv::Ptr<cv::StereoMatcher> makeSemiGlobalMatcher() {
  const int channels = 3;
  const int P1 = 8 * channels * blockSize * blockSize;
  const int P2 = 32 * channels * blockSize * blockSize;
  return cv::StereoSGBM::create(0, numDisparities, blockSize, P1, P2, 0, 0, 0, 0, 0, cv::StereoSGBM::MODE_SGBM);
}

cv::Ptr<cv::StereoMatcher> makeBlockMatcher() {
  auto matcher = cv::StereoBM::create(numDisparities, blockSize);
  matcher->setPreFilterCap(31);
  matcher->setMinDisparity(0);
  matcher->setTextureThreshold(10);
  matcher->setUniquenessRatio(15);
  matcher->setSpeckleWindowSize(100);
  matcher->setSpeckleRange(32);
  matcher->setDisp12MaxDiff(1);
  return matcher;
}

}  // namespace

Matcher::Matcher(int algorithm) : m_algorithm(algorithm) {
  if (algorithm == semiGlobalMatching) {
    m_matcher = makeSemiGlobalMatcher();
  } else if (algorithm == blockMatching) {
    m_matcher = makeBlockMatcher();
  }
}

void Matcher::compute(int algorithm, const cv::Mat& left, const cv::Mat& right, MatchBuffers& buffers,
                      cv::Mat& disparity) const {
  if (!m_matcher || algorithm != m_algorithm) {
    disparity.release();
    return;
  }
  if (algorithm == blockMatching) {
    cv::cvtColor(left, buffers.grayLeft, cv::COLOR_BGR2GRAY);
    cv::cvtColor(right, buffers.grayRight, cv::COLOR_BGR2GRAY);
    m_matcher->compute(buffers.grayLeft, buffers.grayRight, buffers.sixteenths);
  } else {
    m_matcher->compute(left, right, buffers.sixteenths);
  }
  buffers.sixteenths.convertTo(disparity, CV_32F, pixelsPerStep, 0.0);
}

}  // namespace stereo::core
