// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/ccalib/omnidir.hpp>
#include <opencv2/core.hpp>

#include "calibration/BoardGeometry.hpp"
#include "sim/Rig.hpp"

namespace stereo::test {

/// A board's corners at one place, millimeters in the rectified left frame of the rig, bent by `sag` millimeters
/// between the middle and the middle of the short sides.
inline std::vector<cv::Vec3d> boardAt(const calibration::Board& board, const cv::Matx33d& turn, const cv::Vec3d& middle,
                                      double sag) {
  std::vector<cv::Vec3d> points;
  const double half = 0.5 * (board.corners.width - 1) * board.square;
  for (int row = 0; row < board.corners.height; ++row) {
    for (int col = 0; col < board.corners.width; ++col) {
      const double x = col * board.square - half;
      const double y = (row - 0.5 * (board.corners.height - 1)) * board.square;
      points.push_back(turn * cv::Vec3d(x, y, sag * x * x / (half * half)) + middle);
    }
  }
  return points;
}

/// Pixels of such points in one eye of the rig, by OpenCV's own projection.
inline std::vector<cv::Point2d> seenBy(const sim::Rig& rig, bool isRight, const std::vector<cv::Vec3d>& points) {
  const sim::Eye& eye = rig.eye(isRight);
  std::vector<cv::Vec3d> inEye;
  for (const cv::Vec3d& point : points) {
    inEye.push_back(eye.rotation.t() * (point - 1000.0 * eye.position));
  }
  const model::OmniModel& model = eye.model;
  std::vector<cv::Point2d> pixels;
  cv::omnidir::projectPoints(inEye, pixels, cv::Vec3d(0, 0, 0), cv::Vec3d(0, 0, 0), cv::Mat(model.intrinsic()),
                             model.xi, cv::Mat(model.distortion()));
  return pixels;
}

/// What a rig sees of `count` boards from the axis out to 75 degrees, all round, with normal noise of `noise` pixels on
/// each coordinate.
inline std::vector<calibration::BoardView> simulatedViews(const sim::Rig& rig, const calibration::Board& board,
                                                          int count, double noise, double sag, std::uint64_t seed) {
  cv::RNG rng(seed);
  std::vector<calibration::BoardView> views;
  for (int n = 0; n < count; ++n) {
    const double off = std::acos(1.0 - (n + 0.5) / count * (1.0 - std::cos(75.0 * CV_PI / 180.0)));
    const double about = 2.4 * n;
    cv::Matx33d facing;
    cv::Rodrigues(cv::Vec3d(-std::sin(about), std::cos(about), 0) * off, facing);
    cv::Matx33d held;
    cv::Rodrigues(cv::Vec3d(rng.uniform(-0.5, 0.5), rng.uniform(-0.5, 0.5), rng.uniform(-0.2, 0.2)), held);
    const cv::Vec3d middle = facing * cv::Vec3d(0, 0, rng.uniform(300.0, 600.0));
    calibration::BoardView view;
    view.name = "board " + std::to_string(n);
    const std::vector<cv::Vec3d> points = boardAt(board, facing * held, middle, sag);
    for (const bool isRight : {false, true}) {
      for (const cv::Point2d& pixel : seenBy(rig, isRight, points)) {
        view.corners[isRight ? 1 : 0].emplace_back(pixel.x + rng.gaussian(noise), pixel.y + rng.gaussian(noise));
      }
    }
    views.push_back(view);
  }
  return views;
}

}  // namespace stereo::test
