// SPDX-License-Identifier: Apache-2.0
#include "calibration/Rectification.hpp"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

namespace stereo::calibration {
namespace {

TEST(Rectification, PutsPointsIntoTheSameRowAndFartherRightInTheLeftEye) {
  cv::RNG rng(3);
  for (int n = 0; n < 50; ++n) {
    Pose motion;
    for (int k = 0; k < 3; ++k) {
      motion.rotation[k] = rng.uniform(-0.1, 0.1);
    }
    motion.translation = {-60.0, rng.uniform(-4.0, 4.0), rng.uniform(-4.0, 4.0)};
    const auto turns = rectify(motion);
    cv::Matx33d Q;
    cv::Rodrigues(motion.rotation, Q);
    for (const cv::Matx33d& turn : turns) {
      EXPECT_NEAR(cv::norm(turn * turn.t() - cv::Matx33d::eye()), 0, 1e-12);
      EXPECT_NEAR(cv::determinant(turn), 1, 1e-12);
    }
    // Both eyes look about as far away from the common direction.
    EXPECT_NEAR(turns[0](1, 2), -turns[1](1, 2), 0.02);
    for (int point = 0; point < 20; ++point) {
      const cv::Vec3d p(rng.uniform(-900.0, 900.0), rng.uniform(-900.0, 900.0), rng.uniform(200.0, 2000.0));
      const cv::Vec3d left = turns[0] * p;
      const cv::Vec3d right = turns[1] * (Q * p + motion.translation);
      EXPECT_NEAR(left[1], right[1], 1e-9);
      EXPECT_NEAR(left[2], right[2], 1e-9);
      EXPECT_NEAR(left[0] - right[0], cv::norm(motion.translation), 1e-9);
    }
  }
}

TEST(Rectification, RefusesEyesWithoutADistance) {
  EXPECT_THROW(rectify({{0, 0, 0}, {0, 0, 0}}), std::invalid_argument);
  EXPECT_THROW(rectify({{0, 0, 0}, {0, 0, -60}}), std::invalid_argument);
}

}  // namespace
}  // namespace stereo::calibration
