// SPDX-License-Identifier: Apache-2.0
// Finds a chessboard's corners in pictures.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// How much effort to spend on a picture.
enum class Effort {
  quick,    ///< for frames of a running camera: gives up early on a picture without a board
  thorough  ///< for pictures taken on purpose: also tries enlarged and brightened ones
};

/// The board's corners in one eye's image (CV_8UC1 or CV_8UC3), to a fraction of a pixel, in the board's order and
/// right-handed (from a row's direction to a column's is clockwise in the image). Empty unless the whole board is seen.
/// Either end of the board may come first.
std::vector<cv::Point2d> findCorners(const cv::Mat& eyeImage, const Board& board, Effort effort);

/// The corners in both halves of a side-by-side picture (CV_8UC1 or CV_8UC3, even width), beginning at the same corner
/// in both. Throws std::invalid_argument for a picture of another type or an odd width.
BoardView findBoard(const cv::Mat& picture, const Board& board, const std::string& name, Effort effort);

/// Inner corners of any chessboard in an eye's image (CV_8UC1 or CV_8UC3), the greater number first; at least 4 x 4.
/// Empty if none is found. Right for most pictures, not all, so try several.
cv::Size boardSize(const cv::Mat& eyeImage);

/// The size found most often in side-by-side pictures, each eye counted; empty if fewer than `leastEyes` eyes agree.
cv::Size boardSizeIn(const std::vector<cv::Mat>& pictures, int leastEyes);

}  // namespace stereo::calibration
