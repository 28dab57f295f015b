// SPDX-License-Identifier: Apache-2.0
#include "calibration/InitialEstimate.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/calib3d.hpp>

namespace stereo::calibration {

namespace {

constexpr double degree = CV_PI / 180.0;
constexpr double infinite = std::numeric_limits<double>::infinity();
// The grid: mirror parameters from a narrow lens's to a strong fisheye's, and half fields of view, degrees.
constexpr double xis[] = {0.3, 0.8, 1.2, 1.6, 2.2};
constexpr double halfFields[] = {50, 65, 80, 95, 111};
constexpr std::size_t improved = 4;
// Misfit, as a share of the picture's width, above which an estimate is useless.
constexpr double hopeless = 0.02;

double median(std::vector<double> values) {
  if (values.empty()) {
    return infinite;
  }
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

model::OmniModel candidate(double xi, double halfField, const cv::Size& eyeSize) {
  model::OmniModel eye;
  eye.xi = xi;
  const double plane = std::sin(halfField) / (std::cos(halfField) + xi);
  eye.fx = eye.fy = 0.5 * eyeSize.width / plane;
  eye.cx = 0.5 * (eyeSize.width - 1);
  eye.cy = 0.5 * (eyeSize.height - 1);
  return eye;
}

// Estimates the poses of all boards with this model, and the median of their misfits.
void assess(EyeStart& start, const std::vector<BoardView>& views, std::size_t eye, const Board& board) {
  std::vector<double> misfits;
  start.boards.assign(views.size(), std::nullopt);
  for (std::size_t view = 0; view < views.size(); ++view) {
    const std::vector<cv::Point2d>& corners = views[view].corners[eye];
    if (corners.empty()) {
      continue;
    }
    start.boards[view] = boardPose(start.model, corners, board);
    misfits.push_back(start.boards[view] ? misfit(start.model, *start.boards[view], corners, board) : infinite);
    if (misfits.back() == infinite) {
      start.boards[view] = std::nullopt;
    }
  }
  start.rms = median(misfits);
}

// Refines one eye together with all boards that have a pose.
void improve(EyeStart& start, const std::vector<BoardView>& views, std::size_t eye, const Board& board,
             double lossScale, bool fixedDistortion) {
  Estimate estimate;
  estimate.rig.eyes[0] = start.model;
  std::vector<BoardView> seen;
  std::vector<std::size_t> which;
  for (std::size_t view = 0; view < views.size(); ++view) {
    if (start.boards[view]) {
      seen.push_back({"", {views[view].corners[eye], {}}});
      which.push_back(view);
      estimate.boards.push_back(*start.boards[view]);
    }
  }
  SolverOptions options;
  options.lossScale = lossScale;
  options.maxIterations = 40;
  options.fixedDistortion = fixedDistortion;
  options.flatBoard = true;
  if (seen.empty() || !solve(estimate, seen, board, allCorners(seen), options).usable) {
    return;
  }
  start.model = estimate.rig.eyes[0];
  std::vector<double> misfits;
  for (std::size_t k = 0; k < seen.size(); ++k) {
    start.boards[which[k]] = estimate.boards[k];
    misfits.push_back(misfit(start.model, estimate.boards[k], seen[k].corners[0], board));
  }
  start.rms = median(misfits);
}

// Estimates poses of boards that had none with the initial model.
void placeMissing(EyeStart& start, const std::vector<BoardView>& views, std::size_t eye, const Board& board) {
  for (std::size_t view = 0; view < views.size(); ++view) {
    if (!start.boards[view] && !views[view].corners[eye].empty()) {
      start.boards[view] = boardPose(start.model, views[view].corners[eye], board);
      if (start.boards[view] && misfit(start.model, *start.boards[view], views[view].corners[eye], board) == infinite) {
        start.boards[view] = std::nullopt;
      }
    }
  }
}

// A corner on the flat board in units of `unit`, homogeneous.
cv::Vec3d homogeneous(const Board& board, std::size_t index, double unit) {
  const cv::Vec3d point = board.point(index);
  return {point[0] / unit, point[1] / unit, 1.0};
}

std::size_t placed(const EyeStart& start) {
  return static_cast<std::size_t>(
      std::count_if(start.boards.begin(), start.boards.end(), [](const auto& board) { return board.has_value(); }));
}

}  // namespace

std::optional<Pose> boardPose(const model::OmniModel& eye, const std::vector<cv::Point2d>& corners,
                              const Board& board) {
  // ray x (H (X, Y, 1)) = 0, H = [r1 r2 t]: three equations a corner for H's nine elements. Board coordinates are
  // in units of the board's length, to balance the columns.
  const double unit = board.square * std::max(board.corners.width, board.corners.height);
  cv::Matx<double, 9, 9> normal = cv::Matx<double, 9, 9>::zeros();
  std::vector<cv::Vec3d> rays;
  for (std::size_t k = 0; k < corners.size(); ++k) {
    const auto ray = eye.unproject(corners[k]);
    if (!ray) {
      return std::nullopt;
    }
    rays.push_back(*ray);
    const cv::Vec3d q = homogeneous(board, k, unit);
    const cv::Vec3d& r = rays.back();
    const cv::Matx33d across(0, -r[2], r[1], r[2], 0, -r[0], -r[1], r[0], 0);
    cv::Matx<double, 3, 9> rows;
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 9; ++j) {
        rows(i, j) = across(i, j / 3) * q[j % 3];
      }
    }
    normal += rows.t() * rows;
  }
  cv::Mat values;
  cv::Mat vectors;
  if (!cv::eigen(cv::Mat(normal), values, vectors)) {
    return std::nullopt;
  }
  cv::Matx33d H(vectors.ptr<double>(8));
  double sameWay = 0;
  for (std::size_t k = 0; k < rays.size(); ++k) {
    sameWay += rays[k].dot(H * homogeneous(board, k, unit));
  }
  if (sameWay < 0) {
    H = -1.0 * H;
  }
  const cv::Vec3d first(H(0, 0), H(1, 0), H(2, 0));
  const cv::Vec3d second(H(0, 1), H(1, 1), H(2, 1));
  const double size = 0.5 * (cv::norm(first) + cv::norm(second));
  if (!(size > 1e-9)) {
    return std::nullopt;
  }
  const cv::Vec3d third = first.cross(second) / size;
  const cv::Matx33d turn(first[0], second[0], third[0], first[1], second[1], third[1], first[2], second[2], third[2]);
  cv::Matx33d u;
  cv::Matx31d w;
  cv::Matx33d vt;
  cv::SVD::compute(turn, w, u, vt);
  const cv::Matx33d rotation = u * vt;
  if (cv::determinant(rotation) < 0) {
    return std::nullopt;
  }
  Pose pose;
  cv::Rodrigues(rotation, pose.rotation);
  pose.translation = cv::Vec3d(H(0, 2), H(1, 2), H(2, 2)) * (unit / size);
  return pose;
}

double misfit(const model::OmniModel& eye, const Pose& boardToEye, const std::vector<cv::Point2d>& corners,
              const Board& board) {
  const cv::Matx33d R = rotationMatrix(boardToEye.rotation);
  double sum = 0;
  for (std::size_t k = 0; k < corners.size(); ++k) {
    const auto pixel = eye.project(R * board.point(k) + boardToEye.translation);
    if (!pixel) {
      return infinite;
    }
    const cv::Point2d miss = *pixel - corners[k];
    sum += miss.dot(miss);
  }
  return corners.empty() ? infinite : std::sqrt(sum / static_cast<double>(corners.size()));
}

std::optional<EyeStart> initialEye(const std::vector<BoardView>& views, int eye, const Board& board,
                                   const cv::Size& eyeSize) {
  const auto which = static_cast<std::size_t>(eye);
  std::vector<EyeStart> starts;
  for (const double xi : xis) {
    for (const double halfField : halfFields) {
      if (std::cos(halfField * degree) + xi < 0.2) {
        continue;  // such a lens does not reach the edge of the picture
      }
      EyeStart start;
      start.model = candidate(xi, halfField * degree, eyeSize);
      assess(start, views, which, board);
      starts.push_back(std::move(start));
    }
  }
  const auto better = [](const EyeStart& a, const EyeStart& b) { return a.rms < b.rms; };
  std::sort(starts.begin(), starts.end(), better);
  starts.resize(std::min(improved, starts.size()));
  for (EyeStart& start : starts) {
    // First with a wide loss and fixed distortion; then sharper, with all boards that have a pose by then.
    improve(start, views, which, board, 5.0, true);
    placeMissing(start, views, which, board);
    improve(start, views, which, board, 2.0, false);
    placeMissing(start, views, which, board);
    improve(start, views, which, board, 1.0, false);
  }
  // An estimate that lost boards cannot be compared with one that explains all.
  const std::size_t most = placed(*std::max_element(
      starts.begin(), starts.end(), [](const auto& a, const auto& b) { return placed(a) < placed(b); }));
  std::erase_if(starts, [most](const EyeStart& start) { return 10 * placed(start) < 9 * most; });
  const EyeStart& best = *std::min_element(starts.begin(), starts.end(), better);
  if (placed(best) == 0 || !(best.rms < hopeless * eyeSize.width)) {
    return std::nullopt;
  }
  return best;
}

}  // namespace stereo::calibration
