// SPDX-License-Identifier: Apache-2.0
#include "calibration/BoardFinder.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "sim/BoardCapture.hpp"

namespace stereo::calibration {
namespace {

const cv::Size frameSize(928, 400);

TEST(BoardFinder, FindsRenderedCornersToAFractionOfAPixelAndAlikeInBothEyes) {
  const sim::Rig rig(1);
  const sim::BoardCapture boards(rig, {.frameSize = frameSize, .rate = 0, .places = 6});
  const Board board;
  int found = 0;
  double all = 0;
  for (const sim::BoardPlace& place : boards.places()) {
    const BoardView view = findBoard(boards.render(place), board, "", Effort::thorough);
    if (!view.seesBoth()) {
      continue;
    }
    ++found;
    // Counting may start at either end, but at the same end in both eyes.
    double best = std::numeric_limits<double>::infinity();
    for (const bool fromEnd : {false, true}) {
      double squares = 0;
      for (std::size_t k = 0; k < board.count(); ++k) {
        const std::size_t corner = fromEnd ? board.count() - 1 - k : k;
        const cv::Vec3d point = place.rotation * (0.001 * board.point(corner)) + place.position;
        for (const bool isRight : {false, true}) {
          const auto pixel = rig.project(isRight, point, frameSize);
          ASSERT_TRUE(pixel);
          const cv::Point2d miss = *pixel - view.corners[isRight ? 1 : 0][k];
          squares += miss.dot(miss);
        }
      }
      best = std::min(best, squares);
    }
    // Squares are some ten pixels wide here.
    const double meanSquare = best / static_cast<double>(2 * board.count());
    EXPECT_LT(std::sqrt(meanSquare), 0.4);
    all += meanSquare;
  }
  EXPECT_GE(found, 5);
  EXPECT_LT(std::sqrt(all / found), 0.2);
}

TEST(BoardFinder, TellsTheSizeOfWhateverBoardIsThere) {
  const sim::Rig rig(2);
  const sim::BoardCapture boards(rig, {.frameSize = frameSize, .rate = 0, .corners = {7, 5}, .places = 6});
  std::vector<cv::Mat> pictures;
  for (const sim::BoardPlace& place : boards.places()) {
    pictures.push_back(boards.render(place));
  }
  EXPECT_EQ(boardSizeIn(pictures, 3), cv::Size(7, 5));
  EXPECT_EQ(boardSizeIn(pictures, 13), cv::Size()) << "more than there are eyes";
  EXPECT_EQ(boardSizeIn({}, 1), cv::Size());
  EXPECT_EQ(boardSize(cv::Mat(100, 200, CV_8UC3, cv::Scalar::all(90))), cv::Size());
}

TEST(BoardFinder, FindsNothingInAnEmptyPictureAndRefusesOthers) {
  const Board board;
  const BoardView view = findBoard(cv::Mat(100, 200, CV_8UC1, cv::Scalar(90)), board, "grey", Effort::quick);
  EXPECT_FALSE(view.sees(0));
  EXPECT_FALSE(view.sees(1));
  EXPECT_EQ(view.name, "grey");
  EXPECT_THROW(findBoard(cv::Mat(100, 201, CV_8UC1, cv::Scalar(90)), board, "", Effort::quick), std::invalid_argument);
  EXPECT_THROW(findBoard(cv::Mat(100, 200, CV_16UC1, cv::Scalar(90)), board, "", Effort::quick), std::invalid_argument);
  EXPECT_THROW(findBoard(cv::Mat(), board, "", Effort::quick), std::invalid_argument);
}

}  // namespace
}  // namespace stereo::calibration
