// SPDX-License-Identifier: Apache-2.0
#include "calibration/EpipolarCheck.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "StereoCamera.hpp"
#include "calibration/FitErrors.hpp"
#include "model/Text.hpp"

namespace stereo::calibration {

using model::formatted;

namespace {

constexpr double degree = CV_PI / 180.0;
// The compared pictures: longitude-latitude, square, wide enough for the rings to 75 degrees.
constexpr int pictureSide = 840;
constexpr double pictureRange = 2.62;  // radians
constexpr double scale = pictureSide / pictureRange;

constexpr int mostCorners = 2000;
constexpr double thereAndBack = 0.15;  // pixels that a corner tracked there and back may be off
constexpr double usedRadius = 0.93;    // of the image circle, since its rim is not part of the scene

// Limits for a calibration that fits, pixels of the default view and degrees.
constexpr double mostMedian = 0.6;
constexpr double mostRingMedian = 1.0;
constexpr std::size_t leastMatches = 60;
constexpr std::size_t leastRingMatches = 25;
constexpr double leastRingShare = 0.06;  // of all matches, so that one mismatched object does not decide a ring
constexpr double mostTurn = 0.15;
constexpr double mostYaw = 0.2;
// No lens drifts so far that rows are this far off after compensating the rotation: such a match is wrong.
constexpr double mistake = 4.0;         // pixels of the default view
constexpr double leastLikeness = 0.85;  // correlation of the patches around the two corners
constexpr int patchSide = 15;

double quantile(std::vector<double> values, double share) {
  if (values.empty()) {
    return 0.0;
  }
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

cv::Mat cameraMatrix() {
  // Column and row are the angles a and b, both pi / 2 in the middle.
  const double middle = 0.5 * (pictureSide - 1) - scale * 0.5 * CV_PI;
  return (cv::Mat_<double>(3, 3) << scale, 0, middle, 0, scale, middle, 0, 0, 1);
}

cv::Vec3d rayOf(const cv::Point2f& pixel) {
  const double a = 0.5 * CV_PI + (pixel.x - 0.5 * (pictureSide - 1)) / scale;
  const double b = 0.5 * CV_PI + (pixel.y - 0.5 * (pictureSide - 1)) / scale;
  return {-std::cos(a), -std::sin(a) * std::cos(b), std::sin(a) * std::sin(b)};
}

cv::Mat grayOf(const cv::Mat& image, const std::array<cv::Mat, 2>& maps) {
  cv::Mat turned;
  cv::remap(image, turned, maps[0], maps[1], cv::INTER_LINEAR);
  cv::Mat gray;
  cv::cvtColor(turned, gray, cv::COLOR_BGR2GRAY);
  return gray;
}

double latitude(const cv::Vec3d& ray) { return std::atan2(ray[1], ray[2]); }

// Derivative of a ray's latitude atan2(y, z) by a small rotation w of the eye, which moves the ray r by w x r:
//   -wx + (x y wy + x z wz) / (y^2 + z^2).
cv::Vec3d latitudeSlope(const cv::Vec3d& r) {
  const double across = std::max(r[1] * r[1] + r[2] * r[2], 1e-9);
  return {-1.0, r[0] * r[1] / across, r[0] * r[2] / across};
}

double rowDifference(const RayPair& pair) {
  return std::remainder(latitude(pair.left) - latitude(pair.right), 2.0 * CV_PI);
}

// The rows' difference that remains after rotating the right eye, radians.
double rowMiss(const RayPair& pair, const cv::Vec3d& turn) {
  return rowDifference(pair) - latitudeSlope(pair.right).dot(turn);
}

// The small rotation of the right eye that best aligns the rows: least squares with robust weights.
void fitTurn(const std::vector<RayPair>& pairs, EpipolarCheckResult& result) {
  cv::Matx33d normal = cv::Matx33d::zeros();
  cv::Vec3d turn(0, 0, 0);
  double variance = 0;
  double soft = 1.0 / viewFocal;
  for (int round = 0; round < 20; ++round) {
    normal = cv::Matx33d::eye() * 1e-9;
    cv::Vec3d right(0, 0, 0);
    double squares = 0;
    double weights = 0;
    std::vector<double> sizes;
    for (const RayPair& pair : pairs) {
      const cv::Vec3d slope = latitudeSlope(pair.right);
      const double wanted = rowDifference(pair);
      const double miss = wanted - slope.dot(turn);
      sizes.push_back(std::abs(miss));
      const double weight = 1.0 / (1.0 + miss * miss / (soft * soft));
      normal += weight * (slope * slope.t());
      right += weight * wanted * slope;
      squares += weight * miss * miss;
      weights += weight;
    }
    turn = normal.solve(right, cv::DECOMP_CHOLESKY);
    variance = squares / std::max(1.0, weights - 3.0);
    // Half of all misses are below 0.67 standard deviations.
    soft = std::max(2.0 * quantile(sizes, 0.5) / 0.6745, 1e-5);
  }
  const cv::Matx33d covariance = normal.inv();
  for (int k = 0; k < 3; ++k) {
    result.turn[k] = turn[k] / degree;
    result.turnDeviation[k] = std::sqrt(variance * covariance(k, k)) / degree;
  }
}

void findFaults(EpipolarCheckResult& result) {
  if (result.median > mostMedian) {
    result.faults.push_back(formatted("rows differ by %.2f px (median; at most %.1f)", result.median, mostMedian));
  }
  for (std::size_t ring = 0; ring < result.rings.size(); ++ring) {
    const EpipolarCheckRing& each = result.rings[ring];
    const bool counts = each.matches >= leastRingMatches &&
                        static_cast<double>(each.matches) >= leastRingShare * static_cast<double>(result.matches);
    if (counts && each.median > mostRingMedian) {
      result.faults.push_back(formatted("from %.0f degrees off the axis on, rows differ by %.2f px",
                                        static_cast<double>(ring) * ringDegrees, each.median));
      break;
    }
  }
  static constexpr const char* axes[] = {"x (pitch)", "y (yaw)", "z (roll)"};
  for (int k = 0; k < 3; ++k) {
    const double size = std::abs(result.turn[k]);
    if (size > (k == 1 ? mostYaw : mostTurn) && size > 5.0 * result.turnDeviation[k]) {
      result.faults.push_back("the right eye appears rotated by " +
                              formatted("%.2f +- %.2f degrees", result.turn[k], result.turnDeviation[k]) + " about " +
                              axes[k]);
    }
  }
}

}  // namespace

EpipolarCheckResult judgeRows(const std::vector<RayPair>& all) {
  EpipolarCheckResult result;
  result.rings.resize(ringCount);
  if (all.size() < leastMatches) {
    result.matches = all.size();
    return result;
  }
  fitTurn(all, result);
  std::vector<RayPair> pairs;
  std::copy_if(all.begin(), all.end(), std::back_inserter(pairs), [&](const RayPair& pair) {
    return std::abs(rowMiss(pair, result.turn * degree)) * viewFocal <= mistake;
  });
  result.matches = pairs.size();
  std::vector<double> differences;
  std::vector<std::vector<double>> byRing(ringCount);
  for (const RayPair& pair : pairs) {
    const double rows = std::abs(rowDifference(pair)) * viewFocal;
    differences.push_back(rows);
    byRing[static_cast<std::size_t>(ringOf(std::acos(std::clamp(pair.left[2], -1.0, 1.0))))].push_back(rows);
  }
  result.median = quantile(differences, 0.5);
  result.p90 = quantile(differences, 0.9);
  for (std::size_t ring = 0; ring < byRing.size(); ++ring) {
    result.rings[ring] = {byRing[ring].size(), quantile(byRing[ring], 0.5), quantile(byRing[ring], 0.9)};
  }
  result.enough = pairs.size() >= leastMatches;
  if (result.enough) {
    findFaults(result);
  }
  return result;
}

EpipolarCheck::EpipolarCheck(const EyeCalibration& left, const EyeCalibration& right, const cv::Size& eyeSize)
    : m_eyeSize(eyeSize) {
  const cv::Size size(pictureSide, pictureSide);
  m_mask = cv::Mat(size, CV_8UC1, cv::Scalar(255));
  const EyeCalibration* const eyes[] = {&left, &right};
  for (std::size_t eye = 0; eye < 2; ++eye) {
    const EyeCalibration& each = *eyes[eye];
    initRectifyMap(each.K, each.D, each.R, cameraMatrix(), each.xi, 0.0, size, 1, m_maps[eye][0], m_maps[eye][1]);
    const double radius = usedRadius * 0.5 * eyeSize.width;
    const cv::Point2d middle(0.5 * (eyeSize.width - 1), 0.5 * (eyeSize.height - 1));
    for (int row = 0; row < pictureSide; ++row) {
      for (int col = 0; col < pictureSide; ++col) {
        const double x = m_maps[eye][0].at<float>(row, col);
        const double y = m_maps[eye][1].at<float>(row, col);
        const bool inside = x >= 8 && y >= 8 && x <= eyeSize.width - 9 && y <= eyeSize.height - 9 &&
                            std::hypot(x - middle.x, y - middle.y) <= radius;
        if (!inside) {
          m_mask.at<unsigned char>(row, col) = 0;
        }
      }
    }
  }
  cv::erode(m_mask, m_mask, cv::getStructuringElement(cv::MORPH_RECT, {21, 21}));
}

namespace {

// Whether the patches around two corners look alike, by normalized correlation.
bool alike(const cv::Mat& left, const cv::Point2f& inLeft, const cv::Mat& right, const cv::Point2f& inRight) {
  cv::Mat first;
  cv::Mat second;
  cv::getRectSubPix(left, {patchSide, patchSide}, inLeft, first);
  cv::getRectSubPix(right, {patchSide, patchSide}, inRight, second);
  cv::Mat correlation;
  cv::matchTemplate(first, second, correlation, cv::TM_CCOEFF_NORMED);
  return correlation.at<float>(0, 0) >= leastLikeness;
}

}  // namespace

std::size_t EpipolarCheck::add(const cv::Mat& left, const cv::Mat& right) {
  CV_Assert(left.size() == m_eyeSize && right.size() == m_eyeSize && left.type() == CV_8UC3 && right.type() == CV_8UC3);
  const cv::Mat grayLeft = grayOf(left, m_maps[0]);
  const cv::Mat grayRight = grayOf(right, m_maps[1]);
  std::vector<cv::Point2f> corners;
  cv::goodFeaturesToTrack(grayLeft, corners, mostCorners, 0.005, 6.0, m_mask);
  if (corners.empty()) {
    return 0;
  }
  const cv::TermCriteria criteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 50, 0.001);
  const cv::Size window(21, 21);
  std::vector<cv::Point2f> there;
  std::vector<cv::Point2f> back;
  std::vector<unsigned char> foundThere;
  std::vector<unsigned char> foundBack;
  std::vector<float> error;
  cv::calcOpticalFlowPyrLK(grayLeft, grayRight, corners, there, foundThere, error, window, 4, criteria);
  cv::calcOpticalFlowPyrLK(grayRight, grayLeft, there, back, foundBack, error, window, 4, criteria);
  std::size_t found = 0;
  const cv::Rect picture(0, 0, pictureSide, pictureSide);
  for (std::size_t k = 0; k < corners.size(); ++k) {
    const bool same = foundThere[k] != 0 && foundBack[k] != 0 && cv::norm(back[k] - corners[k]) < thereAndBack;
    if (same && picture.contains(cv::Point(there[k])) && m_mask.at<unsigned char>(cv::Point(there[k])) != 0 &&
        alike(grayLeft, corners[k], grayRight, there[k])) {
      m_pairs.push_back({rayOf(corners[k]), rayOf(there[k])});
      ++found;
    }
  }
  return found;
}

EpipolarCheckResult EpipolarCheck::result() const { return judgeRows(m_pairs); }

}  // namespace stereo::calibration
