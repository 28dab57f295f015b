// SPDX-License-Identifier: Apache-2.0
#include "calibration/FitErrors.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "calibration/Rectification.hpp"

namespace stereo::calibration {

namespace {

// Column and row from the middle of the perspective view, pixels.
std::optional<cv::Point2d> inView(const cv::Vec3d& ray) {
  if (!(ray[2] > 0)) {
    return std::nullopt;
  }
  const cv::Point2d pixel(viewFocal * ray[0] / ray[2], viewFocal * ray[1] / ray[2]);
  const bool inside = std::abs(pixel.x) <= viewHalfWidth && std::abs(pixel.y) <= viewHalfHeight;
  return inside ? std::optional(pixel) : std::nullopt;
}

// Angle about the baseline, radians.
double latitude(const cv::Vec3d& ray) { return std::atan2(ray[1], ray[2]); }

}  // namespace

int ringOf(double angle) { return std::clamp(static_cast<int>(angle * 180.0 / CV_PI / ringDegrees), 0, ringCount - 1); }

Spread spreadOf(const std::vector<double>& errors) {
  Spread spread;
  spread.count = errors.size();
  if (errors.empty()) {
    return spread;
  }
  double squares = 0;
  for (const double error : errors) {
    const double size = std::abs(error);
    spread.mean += size;
    squares += size * size;
    spread.most = std::max(spread.most, size);
  }
  spread.mean /= static_cast<double>(errors.size());
  spread.rms = std::sqrt(squares / static_cast<double>(errors.size()));
  return spread;
}

std::vector<RowError> rowErrors(const StereoRig& rig, const std::vector<BoardView>& views, const Selection& selection) {
  const std::array<cv::Matx33d, 2> turns = rectify(rig.rightFromLeft);
  std::vector<RowError> result;
  for (std::size_t view = 0; view < views.size(); ++view) {
    const auto& [inLeft, inRight] = selection[view];
    for (std::size_t k = 0; k < std::min(inLeft.size(), inRight.size()); ++k) {
      if (inLeft[k] == 0 || inRight[k] == 0) {
        continue;
      }
      const auto leftRay = rig.eyes[0].unproject(views[view].corners[0][k]);
      const auto rightRay = rig.eyes[1].unproject(views[view].corners[1][k]);
      if (!leftRay || !rightRay) {
        continue;
      }
      const cv::Vec3d left = turns[0] * *leftRay;
      const cv::Vec3d right = turns[1] * *rightRay;
      RowError error;
      error.view = view;
      error.angle = std::acos(std::clamp(left[2], -1.0, 1.0));
      error.latitude = std::remainder(latitude(left) - latitude(right), 2.0 * CV_PI);
      const auto leftPixel = inView(left);
      const auto rightPixel = inView(right);
      if (leftPixel && rightPixel) {
        error.rows = leftPixel->y - rightPixel->y;
      }
      result.push_back(error);
    }
  }
  return result;
}

FitErrors fitErrors(const Estimate& estimate, const std::vector<BoardView>& views, const Board& board,
                    const Selection& selection) {
  FitErrors errors;
  errors.reprojection.resize(views.size());
  for (std::size_t view = 0; view < views.size(); ++view) {
    for (std::size_t eye = 0; eye < 2; ++eye) {
      const Pose pose = eye == 0 ? estimate.boards[view] : combined(estimate.rig.rightFromLeft, estimate.boards[view]);
      const cv::Matx33d R = rotationMatrix(pose.rotation);
      for (std::size_t k = 0; k < views[view].corners[eye].size(); ++k) {
        const auto pixel = estimate.rig.eyes[eye].project(R * board.point(k, estimate.sags) + pose.translation);
        errors.reprojection[view][eye].push_back(pixel ? cv::norm(*pixel - views[view].corners[eye][k])
                                                       : std::numeric_limits<double>::infinity());
      }
    }
  }
  errors.rows = rowErrors(estimate.rig, views, selection);
  return errors;
}

std::vector<double> distances(const FitErrors& errors, std::size_t view, const Selection* selection) {
  std::vector<double> result;
  for (std::size_t eye = 0; eye < 2; ++eye) {
    for (std::size_t k = 0; k < errors.reprojection[view][eye].size(); ++k) {
      const bool taken =
          selection == nullptr || (k < (*selection)[view][eye].size() && (*selection)[view][eye][k] != 0);
      if (taken) {
        result.push_back(errors.reprojection[view][eye][k]);
      }
    }
  }
  return result;
}

}  // namespace stereo::calibration
