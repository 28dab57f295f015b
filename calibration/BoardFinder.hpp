// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "calibration/BoardGeometry.hpp"

namespace stereo::calibration {

/// How much effort goes into a picture.
enum class Effort {
  quick,    ///< for frames of a running camera: a picture without a board is soon given up
  thorough  ///< for pictures that were taken on purpose: brightened and enlarged where need be
};

/// The board's corners in one eye's image (CV_8UC1 or CV_8UC3), to a fraction of a pixel, in the board's order and
/// right-handed (a row's direction, then a column's, turn clockwise as one looks). Empty if the whole board is not
/// seen. Which of the two ends comes first is left open.
std::vector<cv::Point2d> findCorners(const cv::Mat& eyeImage, const Board& board, Effort effort);

/// The corners in both halves of a side-by-side picture (CV_8UC1 or CV_8UC3, even width), beginning at the same corner
/// in both. Throws std::invalid_argument for a picture of another type or an odd width.
BoardView findBoard(const cv::Mat& picture, const Board& board, const std::string& name, Effort effort);

/// Inner corners of whatever chessboard is in an eye's image (CV_8UC1 or CV_8UC3), the greater number first; at least
/// 4 x 4. Empty where none is found. Right for most pictures, not for all: ask several.
cv::Size boardSize(const cv::Mat& eyeImage);

/// The size that most of some side-by-side pictures show, each eye asked for itself; empty where fewer than
/// `leastEyes` eyes agree.
cv::Size boardSizeIn(const std::vector<cv::Mat>& pictures, int leastEyes);

}  // namespace stereo::calibration
