// SPDX-License-Identifier: Apache-2.0
#include "calibration/BoardFinder.hpp"

#include <algorithm>
#include <limits>
#include <map>
#include <stdexcept>
#include <utility>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

namespace stereo::calibration {

namespace {

// Half the side of the window that a corner is refined in, pixels, and its share of the distance to the nearest corner:
// a window that contains a neighbor is drawn toward it.
constexpr int leastWindow = 2;
constexpr int mostWindow = 6;
constexpr double windowShare = 0.35;

cv::Mat grayOf(const cv::Mat& image) {
  cv::Mat gray = image;
  if (image.channels() == 3) {
    cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY);
  }
  return gray;
}

double nearestNeighbor(const std::vector<cv::Point2f>& corners, std::size_t k, const cv::Size& size) {
  const int row = static_cast<int>(k) / size.width;
  const int col = static_cast<int>(k) % size.width;
  double nearest = std::numeric_limits<double>::infinity();
  for (const cv::Point& step : {cv::Point(1, 0), cv::Point(-1, 0), cv::Point(0, 1), cv::Point(0, -1)}) {
    const cv::Point other(col + step.x, row + step.y);
    if (other.x >= 0 && other.y >= 0 && other.x < size.width && other.y < size.height) {
      const auto index =
          static_cast<std::size_t>(other.y) * static_cast<std::size_t>(size.width) + static_cast<std::size_t>(other.x);
      nearest = std::min(nearest, cv::norm(corners[index] - corners[k]));
    }
  }
  return nearest;
}

// False if a corner moved far: then it was none.
bool refine(const cv::Mat& gray, std::vector<cv::Point2f>& corners, const cv::Size& size) {
  const cv::TermCriteria criteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 60, 0.001);
  const std::vector<cv::Point2f> found = corners;
  for (std::size_t k = 0; k < corners.size(); ++k) {
    const double room = nearestNeighbor(found, k, size);
    // A window for each, since near the rim of a fisheye the squares of one board differ much in size.
    const int window = std::clamp(static_cast<int>(windowShare * room), leastWindow, mostWindow);
    std::vector<cv::Point2f> one{found[k]};
    cv::cornerSubPix(gray, one, {window, window}, {-1, -1}, criteria);
    corners[k] = one[0];
    if (cv::norm(corners[k] - found[k]) > 0.5 * room) {
      return false;
    }
  }
  return true;
}

bool search(const cv::Mat& gray, const cv::Size& size, double scale, int flags, std::vector<cv::Point2f>& corners) {
  cv::Mat scaled = gray;
  if (scale != 1.0) {
    cv::resize(gray, scaled, {}, scale, scale, scale > 1.0 ? cv::INTER_CUBIC : cv::INTER_AREA);
  }
  if (!cv::findChessboardCorners(scaled, size, corners, flags)) {
    return false;
  }
  // The center of pixel u is at scale (u + 0.5) - 0.5 in the scaled picture.
  for (cv::Point2f& corner : corners) {
    const auto s = static_cast<float>(scale);
    corner = (corner + cv::Point2f(0.5F, 0.5F)) / s - cv::Point2f(0.5F, 0.5F);
  }
  return true;
}

bool searchThoroughly(const cv::Mat& gray, const cv::Size& size, std::vector<cv::Point2f>& corners) {
  constexpr int flags = cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE;
  if (search(gray, size, 1.0, flags, corners) || search(gray, size, 2.0, flags, corners)) {
    return true;
  }
  cv::Mat even;
  cv::createCLAHE(4.0, {8, 8})->apply(gray, even);
  return search(even, size, 1.0, flags, corners) || search(even, size, 2.0, flags, corners) ||
         cv::findChessboardCornersSB(gray, size, corners, cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_ACCURACY);
}

// The quick search scales pictures to about this width; corners are refined at the original size.
constexpr double quickWidth = 928.0;

}  // namespace

std::vector<cv::Point2d> findCorners(const cv::Mat& eyeImage, const Board& board, Effort effort) {
  const cv::Mat gray = grayOf(eyeImage);
  std::vector<cv::Point2f> corners;
  constexpr int quickFlags = cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_FAST_CHECK;
  const bool found = effort == Effort::quick
                         ? search(gray, board.corners, std::min(2.0, quickWidth / gray.cols), quickFlags, corners)
                         : searchThoroughly(gray, board.corners, corners);
  if (!found || corners.size() != board.count() || !refine(gray, corners, board.corners)) {
    return {};
  }
  const auto width = static_cast<std::size_t>(board.corners.width);
  const cv::Point2f alongRow = corners[width - 1] - corners[0];
  const cv::Point2f alongColumn = corners[corners.size() - width] - corners[0];
  if (alongRow.cross(alongColumn) < 0) {
    for (std::size_t row = 0; row < corners.size(); row += width) {
      std::reverse(corners.begin() + static_cast<std::ptrdiff_t>(row),
                   corners.begin() + static_cast<std::ptrdiff_t>(row + width));
    }
  }
  return {corners.begin(), corners.end()};
}

BoardView findBoard(const cv::Mat& picture, const Board& board, const std::string& name, Effort effort) {
  if (picture.empty() || (picture.type() != CV_8UC1 && picture.type() != CV_8UC3) || picture.cols % 2 != 0) {
    throw std::invalid_argument(
        "a side-by-side picture must be 8-bit with one or three channels, and have an even width");
  }
  BoardView view;
  view.name = name;
  const int width = picture.cols / 2;
  for (int eye = 0; eye < 2; ++eye) {
    const cv::Mat half = picture.colRange(eye * width, (eye + 1) * width);
    view.corners[static_cast<std::size_t>(eye)] = findCorners(half, board, effort);
  }
  // A board looks much the same upside down; both lists must begin at the same corner.
  auto& [left, right] = view.corners;
  if (view.seesBoth() && (left.back() - left.front()).dot(right.back() - right.front()) < 0.0) {
    std::reverse(right.begin(), right.end());
  }
  return view;
}

cv::Size boardSize(const cv::Mat& eyeImage) {
  // The finder grows a small board as far as the pattern goes. Smaller ones are found where there is none.
  const cv::Size least(4, 4);
  std::vector<cv::Point2f> corners;
  cv::Mat found;
  if (!cv::findChessboardCornersSB(grayOf(eyeImage), least, corners, cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_LARGER,
                                   found)) {
    return {};
  }
  return {std::max(found.cols, found.rows), std::min(found.cols, found.rows)};
}

cv::Size boardSizeIn(const std::vector<cv::Mat>& pictures, int leastEyes) {
  std::map<std::pair<int, int>, int> votes;
  for (const cv::Mat& picture : pictures) {
    for (int eye = 0; eye < 2; ++eye) {
      const cv::Size size = boardSize(picture.colRange(eye * picture.cols / 2, (eye + 1) * (picture.cols / 2)));
      if (!size.empty()) {
        ++votes[{size.width, size.height}];
      }
    }
  }
  const auto most =
      std::max_element(votes.begin(), votes.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  return most == votes.end() || most->second < leastEyes ? cv::Size() : cv::Size(most->first.first, most->first.second);
}

}  // namespace stereo::calibration
