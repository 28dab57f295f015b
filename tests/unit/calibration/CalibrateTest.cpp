// SPDX-License-Identifier: Apache-2.0
// Boards seen by a rig that is known: what comes out is compared in rays and millimeters, since xi, focal length and
// distortion trade off against each other.
#include "calibration/Calibrate.hpp"

#include <algorithm>
#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "calibration/Assessment.hpp"
#include "calibration/Rectification.hpp"
#include "tests/unit/calibration/Boards.hpp"

namespace stereo::calibration {
namespace {

constexpr double degree = CV_PI / 180.0;
const cv::Size eyeSize(928, 800);

void quiet(const std::string&) {}

struct RayPairs {
  std::vector<cv::Vec3d> truth;  // common frame of the true rig
  std::vector<cv::Vec3d> found;  // common frame of the calibration
};

// Rays over the field up to `most` degrees: projected by the true model, lifted back by the one that was found.
RayPairs raysOf(const Calibration& calibration, const sim::Rig& rig, double most) {
  const auto turns = rectify(calibration.estimate.rig.rightFromLeft);
  RayPairs pairs;
  for (const bool isRight : {false, true}) {
    const std::size_t eye = isRight ? 1 : 0;
    for (int off = 0; off <= most; off += 5) {
      for (int about = 0; about < 360; about += 20) {
        const cv::Vec3d ray(std::sin(off * degree) * std::cos(about * degree),
                            std::sin(off * degree) * std::sin(about * degree), std::cos(off * degree));
        const cv::Vec3d common = rig.eye(isRight).rotation * ray;
        const auto pixel = test::seenBy(rig, isRight, {1000.0 * (common + rig.eye(isRight).position)});
        const auto back = calibration.estimate.rig.eyes[eye].unproject(pixel[0]);
        EXPECT_TRUE(back) << "eye " << eye << ", " << off << " degrees";
        if (back) {
          pairs.truth.push_back(common);
          pairs.found.push_back(turns[eye] * *back);
        }
      }
    }
  }
  return pairs;
}

// Greatest angle between the rays, degrees, once the common frame of both eyes is turned for the best: where it lies is
// fixed by the line between the eyes, which boards leave less certain than any ray where the eyes are close together,
// and by a convention. `baselineTurn` gets how far that line is off, degrees.
double greatestAngle(const RayPairs& pairs, double* baselineTurn = nullptr) {
  cv::Matx33d sum = cv::Matx33d::zeros();
  for (std::size_t k = 0; k < pairs.truth.size(); ++k) {
    sum += pairs.truth[k] * pairs.found[k].t();
  }
  cv::Matx31d w;
  cv::Matx33d u;
  cv::Matx33d vt;
  cv::SVD::compute(sum, w, u, vt);
  const cv::Matx33d turn = u * vt;
  if (baselineTurn != nullptr) {
    *baselineTurn = std::acos(std::min(1.0, turn(0, 0))) / degree;
  }
  double most = 0;
  for (std::size_t k = 0; k < pairs.truth.size(); ++k) {
    const cv::Vec3d across = (turn * pairs.found[k]).cross(pairs.truth[k]);
    most = std::max(most, std::asin(std::min(1.0, cv::norm(across))) / degree);
  }
  return most;
}

class KnownRig : public testing::TestWithParam<std::uint32_t> {};

TEST_P(KnownRig, RaysAndBaselineComeBack) {
  const sim::Rig rig(GetParam());
  const Board board;
  const Calibration found =
      calibrate(test::simulatedViews(rig, board, 30, 0.05, 0.0, GetParam()), board, eyeSize, quiet);
  EXPECT_EQ(found.picturesKept(), 30U);
  EXPECT_TRUE(found.converged);
  // Two coordinates with a deviation of 0.05 pixels each.
  EXPECT_NEAR(found.rms(), 0.05 * std::sqrt(2.0), 0.01);
  EXPECT_NEAR(found.baseline(), 1000 * rig.baseline(), 0.005 * 1000 * rig.baseline());
  double baselineTurn = 0;
  EXPECT_LT(greatestAngle(raysOf(found, rig, 85), &baselineTurn), 0.05);
  EXPECT_LT(baselineTurn, 0.2);
}

INSTANTIATE_TEST_SUITE_P(Rigs, KnownRig, testing::Values(1U, 5U));

TEST(Calibrate, BentBoardIsNoticedAndMadeGood) {
  const sim::Rig rig(2);
  const Board board;
  const Calibration found = calibrate(test::simulatedViews(rig, board, 30, 0.05, 2.0, 9), board, eyeSize, quiet);
  EXPECT_NEAR(found.estimate.sags[0], 2.0, 0.15);
  EXPECT_NEAR(found.estimate.sags[1], 0.0, 0.15);
  EXPECT_NEAR(found.estimate.sags[2], 0.0, 0.15);
  EXPECT_NEAR(found.baseline(), 1000 * rig.baseline(), 0.005 * 1000 * rig.baseline());
  EXPECT_LT(greatestAngle(raysOf(found, rig, 85)), 0.05);
}

TEST(Calibrate, OutliersAreThrownOut) {
  const sim::Rig rig(3);
  const Board board;
  std::vector<BoardView> views = test::simulatedViews(rig, board, 22, 0.05, 0.0, 4);
  for (const std::size_t view : {2U, 7U, 11U}) {
    views[view].corners[0][5] += cv::Point2d(4, -3);
    views[view].corners[1][30] += cv::Point2d(-6, 2);
  }
  // A picture whose right half is from another moment.
  views[9].corners[1] = views[14].corners[1];
  // Found in one eye only: used for that eye.
  views[4].corners[1].clear();
  const Calibration found = calibrate(views, board, eyeSize, quiet);
  EXPECT_EQ(found.picturesKept(), 21U);
  EXPECT_EQ(found.kept[9], 0);
  EXPECT_EQ(found.kept[4], 1);
  EXPECT_EQ(found.cornersFound(), 20U * 96 + 48);
  EXPECT_EQ(found.cornersFound() - found.cornersUsed(), 6U);
  for (const std::size_t view : {2U, 7U, 11U}) {
    EXPECT_EQ(found.selection[view][0][5], 0);
    EXPECT_EQ(found.selection[view][1][30], 0);
  }
  EXPECT_LT(greatestAngle(raysOf(found, rig, 85)), 0.05);
  EXPECT_THAT(assess(found, eyeSize).faults, testing::IsEmpty());

  // Only corners that the result is based on count, in the decision and in its text.
  Calibration blurred = found;
  for (std::size_t view = 0; view < views.size(); ++view) {
    for (std::size_t eye = 0; eye < 2; ++eye) {
      const std::vector<char>& used = found.selection[view][eye];
      for (std::size_t k = 0; k < used.size(); ++k) {
        blurred.errors.reprojection[view][eye][k] = used[k] != 0 ? 2.0 : 100.0;
      }
    }
  }
  EXPECT_THAT(assess(blurred, eyeSize).faults, testing::ElementsAre(testing::HasSubstr("corners are 2.00 px off")));

  // The same with squares given in centimeters, half inches and tenths.
  for (const double unit : {0.1, 1 / 12.7, 10.0}) {
    Calibration mistaken = found;
    mistaken.estimate.rig.rightFromLeft.translation *= unit;
    EXPECT_THAT(assess(mistaken, eyeSize).faults,
                testing::ElementsAre(testing::HasSubstr("is --square in millimeters?")));
  }
}

TEST(Calibrate, ExchangedHalvesAreToldOf) {
  const Board board;
  std::vector<BoardView> views = test::simulatedViews(sim::Rig(1), board, 8, 0.05, 0.0, 6);
  for (BoardView& view : views) {
    std::swap(view.corners[0], view.corners[1]);
  }
  try {
    calibrate(views, board, eyeSize, quiet);
    FAIL() << "took the right eye for the left one";
  } catch (const CannotCalibrate& reason) {
    EXPECT_THAT(reason.what(), testing::HasSubstr("exchanged"));
  }
}

TEST(Calibrate, TooFewPicturesAreRefused) {
  const Board board;
  std::vector<BoardView> views = test::simulatedViews(sim::Rig(1), board, 8, 0.05, 0.0, 6);
  for (std::size_t view = 4; view < views.size(); ++view) {
    views[view].corners[0].clear();
  }
  EXPECT_THROW(calibrate(views, board, eyeSize, quiet), CannotCalibrate);
  EXPECT_THROW(calibrate({}, board, eyeSize, quiet), CannotCalibrate);
  EXPECT_THROW(calibrate(views, Board{{7, 7}, 30}, eyeSize, quiet), std::invalid_argument);
}

TEST(Calibrate, NonsenseIsRefusedOrJudgedBad) {
  const Board board;
  cv::RNG rng(5);
  std::vector<BoardView> views(6);
  for (BoardView& view : views) {
    for (std::vector<cv::Point2d>& corners : view.corners) {
      for (std::size_t k = 0; k < board.count(); ++k) {
        corners.emplace_back(rng.uniform(0.0, 927.0), rng.uniform(0.0, 799.0));
      }
    }
  }
  EXPECT_THROW(calibrate(views, board, eyeSize, quiet), CannotCalibrate);
}

}  // namespace
}  // namespace stereo::calibration
