// SPDX-License-Identifier: Apache-2.0
#include "calibration/EpipolarCheck.hpp"

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include "sim/Renderer.hpp"
#include "sim/Rig.hpp"

namespace stereo::calibration {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr double degree = CV_PI / 180.0;

// Points all over the field, seen by a right eye that has turned by `turn` degrees since it was calibrated, with noise
// on the direction of 0.0005 radians.
std::vector<RayPair> pairsFor(const cv::Vec3d& turn, int count = 600) {
  cv::RNG rng(11);
  cv::Matx33d R;
  cv::Rodrigues(turn * degree, R);
  std::vector<RayPair> pairs;
  for (int n = 0; n < count; ++n) {
    const double off = rng.uniform(0.0, 70.0) * degree;
    const double about = rng.uniform(0.0, 2 * CV_PI);
    const cv::Vec3d left(std::sin(off) * std::cos(about), std::sin(off) * std::sin(about), std::cos(off));
    const cv::Vec3d point = left * rng.uniform(0.5, 5.0);
    const cv::Vec3d noise(rng.gaussian(5e-4), rng.gaussian(5e-4), rng.gaussian(5e-4));
    pairs.push_back({left, R.t() * cv::normalize(cv::normalize(point - cv::Vec3d(0.06, 0, 0)) + noise)});
  }
  return pairs;
}

TEST(EpipolarCheck, FitsWhereNothingHasMoved) {
  const EpipolarCheckResult result = judgeRows(pairsFor({0, 0, 0}));
  EXPECT_TRUE(result.enough);
  EXPECT_THAT(result.faults, IsEmpty());
  EXPECT_LT(result.median, 0.2);
  EXPECT_LT(cv::norm(result.turn), 0.03);
}

class Turned : public testing::TestWithParam<int> {};

TEST_P(Turned, ThirdOfADegreeIsFoundAndMeasured) {
  cv::Vec3d turn(0, 0, 0);
  turn[GetParam()] = 0.3;
  const EpipolarCheckResult result = judgeRows(pairsFor(turn));
  EXPECT_THAT(result.faults, Contains(HasSubstr("rotated")));
  // The eye's turn against its calibration.
  EXPECT_LT(cv::norm(result.turn - turn), 0.03) << result.turn;
  EXPECT_LT(cv::norm(result.turnDeviation), 0.03);
}

INSTANTIATE_TEST_SUITE_P(Axes, Turned, testing::Values(0, 1, 2));

TEST(EpipolarCheck, MistakenMatchesDecideNothing) {
  std::vector<RayPair> pairs = pairsFor({0, 0, 0});
  for (std::size_t k = 0; k < pairs.size(); k += 4) {
    pairs[k].right = cv::normalize(pairs[k].right + cv::Vec3d(0, 0.1, 0));
  }
  const EpipolarCheckResult result = judgeRows(pairs);
  EXPECT_THAT(result.faults, IsEmpty());
  EXPECT_NEAR(static_cast<double>(result.matches), 450, 5);
}

TEST(EpipolarCheck, FewMatchesAreNoVerdict) {
  const EpipolarCheckResult result = judgeRows(pairsFor({1, 0, 0}, 40));
  EXPECT_FALSE(result.enough);
  EXPECT_THAT(result.faults, IsEmpty());
  EXPECT_FALSE(judgeRows({}).enough);
}

TEST(EpipolarCheck, TellsFromAPictureOfTheRoom) {
  const cv::Size frameSize(928, 400);
  const sim::Rig rig(1);
  const auto scene = std::make_shared<const sim::Scene>(sim::Scene::Options{1, false, 2.0});
  const cv::Mat frame = sim::Renderer(scene, rig, frameSize).render(0);
  EyeCalibration eyes[2];
  for (const bool isRight : {false, true}) {
    const model::OmniModel model = rig.modelFor(isRight, frameSize);
    eyes[isRight ? 1 : 0] = {cv::Mat(model.intrinsic(), true), cv::Mat(model.distortion(), true).t(), model.xi,
                             cv::Mat(rig.eye(isRight).rotation, true)};
  }
  const cv::Mat left = frame.colRange(0, 464);
  const cv::Mat right = frame.colRange(464, 928);
  EpipolarCheck good(eyes[0], eyes[1], left.size());
  EXPECT_GT(good.add(left, right), 200U);
  EXPECT_THAT(good.result().faults, IsEmpty());

  cv::Matx33d turn;
  cv::Rodrigues(cv::Vec3d(0.3 * degree, 0, 0), turn);
  eyes[1].R = cv::Mat(cv::Mat(turn) * eyes[1].R);
  EpipolarCheck bad(eyes[0], eyes[1], left.size());
  bad.add(left, right);
  const EpipolarCheckResult result = bad.result();
  EXPECT_THAT(result.faults, Contains(HasSubstr("pitch")));
  EXPECT_NEAR(result.turn[0], -0.3, 0.04);
}

}  // namespace
}  // namespace stereo::calibration
