// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/RealFrames.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>

#include "calibration/BoardFinder.hpp"
#include "model/Text.hpp"
#include "sources/ReplayCamera.hpp"

namespace stereo::wide {

namespace {

namespace fs = std::filesystem;

const calibration::Board board{};    // 8 x 6 corners, squares of 39 mm
constexpr double boardError = 1.5;   // percent
constexpr double agreeWithin = 0.1;  // relative

std::vector<fs::path> picturesOf(const fs::path& folder) {
  std::vector<fs::path> pictures;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".png") {
      pictures.push_back(entry.path());
    }
  }
  std::sort(pictures.begin(), pictures.end());
  return pictures;
}

/// A recorded frame and what its camera is known to be.
struct Recorded {
  Recorded(const fs::path& picture, const fs::path& calibrationFile)
      : player({.path = picture.string(), .rate = 0}), frame(cv::imread(picture.string())) {
    if (!player.loadCalibParams(calibrationFile.string()) || !player.getCalibParams(camera.params[0], false) ||
        !player.getCalibParams(camera.params[1], true)) {
      throw std::runtime_error("cannot use the calibration " + calibrationFile.string());
    }
    camera.eye = {frame.cols / 2, frame.rows};
    for (std::vector<cv::Mat>& params : camera.params) {
      for (cv::Mat& matrix : params) {
        matrix = matrix.clone();  // the player scales its own when it starts
      }
    }
  }
  Recorded(const Recorded&) = delete;
  Recorded& operator=(const Recorded&) = delete;

  cv::Mat eye(bool isRight) const {
    return frame.colRange(isRight ? camera.eye.width : 0, isRight ? 2 * camera.eye.width : camera.eye.width).clone();
  }

  sources::ReplayCamera player;
  cv::Mat frame;
  Camera camera;
};

double medianOf(std::vector<double> values) {
  if (values.empty()) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Median of the ranges within two pixels; 0 if there are fewer than three.
double rangeAround(const cv::Mat& range, const cv::Point2d& at) {
  std::vector<double> values;
  for (int row = cvRound(at.y) - 2; row <= cvRound(at.y) + 2; ++row) {
    for (int col = cvRound(at.x) - 2; col <= cvRound(at.x) + 2; ++col) {
      if (row >= 0 && col >= 0 && row < range.rows && col < range.cols && range.at<float>(row, col) > 0.0F) {
        values.push_back(range.at<float>(row, col));
      }
    }
  }
  return values.size() < 3 ? 0.0 : medianOf(values);
}

/// A board's corners as the left eye sees them.
struct BoardTruth {
  std::vector<cv::Vec3d> rays;    // unit, rectified left frame
  std::vector<double> distances;  // meters
  double offAxis = 0.0;           // degrees, of the board's middle
};

BoardTruth truthOf(const std::vector<cv::Point2d>& corners, const Camera& camera) {
  BoardTruth truth;
  const model::OmniModel model = modelOf(camera.params[0], camera.eye.width);
  const cv::Matx33d toRectified(camera.params[0][3]);
  cv::Vec3d middle;
  for (const cv::Point2d& corner : corners) {
    const auto ray = model.unproject(corner);
    if (!ray) {
      throw std::runtime_error("a corner is outside the calibrated field");
    }
    truth.rays.push_back(toRectified * *ray);
    middle += truth.rays.back();
  }
  middle = cv::normalize(middle);
  truth.offAxis = std::acos(std::clamp(middle[2], -1.0, 1.0)) * 180.0 / CV_PI;
  // A pinhole that looks at the middle of the board.
  const cv::Vec3d across = cv::normalize(cv::Vec3d(0, 1, 0).cross(middle));
  const cv::Vec3d down = middle.cross(across);
  std::vector<cv::Point2d> pinhole;
  std::vector<cv::Point3d> flat;
  for (std::size_t n = 0; n < corners.size(); ++n) {
    const double depth = truth.rays[n].dot(middle);
    pinhole.emplace_back(truth.rays[n].dot(across) / depth, truth.rays[n].dot(down) / depth);
    flat.emplace_back(0.001 * board.point(n));
  }
  cv::Mat rotation;
  cv::Vec3d translation;
  cv::solvePnP(flat, pinhole, cv::Matx33d::eye(), cv::noArray(), rotation, translation);
  cv::Matx33d turn;
  cv::Rodrigues(rotation, turn);
  for (const cv::Point3d& point : flat) {
    truth.distances.push_back(cv::norm(turn * cv::Vec3d(point) + translation));
  }
  return truth;
}

Figures boardFigures(const BoardTruth& truth, const cv::Mat& range, const View& view) {
  std::vector<double> errors;
  std::vector<cv::Vec3d> points(truth.rays.size());
  for (std::size_t n = 0; n < truth.rays.size(); ++n) {
    const double measured = rangeAround(range, view.pixel(truth.rays[n]));
    if (measured > 0.0) {
      errors.push_back(100.0 * (measured / truth.distances[n] - 1.0));
      points[n] = measured * truth.rays[n];
    }
  }
  std::vector<double> sides;
  const auto across = static_cast<std::size_t>(board.corners.width);
  for (std::size_t n = 0; n < points.size(); ++n) {
    for (const std::size_t next : {n + 1, n + across}) {
      const bool isNeighbor = next < points.size() && (next != n + 1 || next % across != 0);
      if (isNeighbor && points[n] != cv::Vec3d() && points[next] != cv::Vec3d()) {
        sides.push_back(100.0 * (1000.0 * cv::norm(points[n] - points[next]) / board.square - 1.0));
      }
    }
  }
  return {{"distance, meters", medianOf(truth.distances)},
          {"off axis, degrees", truth.offAxis},
          {"corners", 100.0 * static_cast<double>(errors.size()) / static_cast<double>(points.size())},
          {"error", medianOf(errors)},
          {"side", medianOf(sides)}};
}

/// Depth of the camera class, z in meters, and the view that it belongs to.
struct ClassDepth {
  cv::Mat depth;
  cv::Matx33d matrix;
  double reach = 0.0;  // meters: nearer things are not found
};

ClassDepth classDepth(Recorded& recorded) {
  sources::ReplayCamera& camera = recorded.player;
  camera.setRectFrameSize({464, 400});
  camera.setDepthMode(2);
  camera.setAlgorithm(0);
  camera.setDepthLimits(0.05F, 10.0F);
  camera.startCapture(false, false);
  camera.startStereoCompute();
  std::vector<cv::Vec3f> cloud;
  std::chrono::microseconds timestamp{0};
  camera.getPointCloud(cloud, timestamp);
  ClassDepth result;
  cv::Mat disparity = camera.latestDisparity().second;
  camera.getDepthFrame(disparity, result.depth);
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, false);
  result.matrix = cv::Matx33d(params[5]);
  camera.stopStereoCompute();
  camera.stopCapture();
  result.reach = result.matrix(0, 0) * 0.001 * cv::norm(recorded.camera.params[1][4]) / 31.0;
  return result;
}

Figures sceneFigures(const cv::Mat& range, const View& view, const ClassDepth& reference) {
  std::size_t both = 0;
  std::size_t agreeing = 0;
  const cv::Matx33d& P = reference.matrix;
  for (int row = 0; row < reference.depth.rows; ++row) {
    for (int col = 0; col < reference.depth.cols; ++col) {
      const double z = reference.depth.at<float>(row, col);
      if (z <= reference.reach) {
        continue;
      }
      const cv::Vec3d ray = cv::normalize(cv::Vec3d((col - P(0, 2)) / P(0, 0), (row - P(1, 2)) / P(1, 1), 1.0));
      const cv::Point2d pixel = view.pixel(ray);
      const cv::Point at(cvRound(pixel.x), cvRound(pixel.y));
      if (!cv::Rect(0, 0, range.cols, range.rows).contains(at) || range.at<float>(at) <= 0.0F) {
        continue;
      }
      ++both;
      agreeing += std::abs(range.at<float>(at) * ray[2] / z - 1.0) <= agreeWithin ? 1 : 0;
    }
  }
  return {{"measured", 100.0 * cv::countNonZero(range > 0.0F) / static_cast<double>(range.total())},
          {"both have depth", 100.0 * static_cast<double>(both) / static_cast<double>(reference.depth.total())},
          {"agree", both == 0 ? std::numeric_limits<double>::quiet_NaN()
                              : 100.0 * static_cast<double>(agreeing) / static_cast<double>(both)}};
}

}  // namespace

std::vector<Entry> judgeBoards(const fs::path& folder, const std::vector<EngineKind>& engines, const Task& task) {
  std::vector<Entry> entries;
  std::vector<double> boards(engines.size());
  std::vector<double> measured(engines.size());
  std::vector<double> within(engines.size());
  std::vector<double> worst(engines.size());
  for (const fs::path& picture : picturesOf(folder)) {
    const Recorded recorded(picture, folder / "calibration.yml");
    const std::vector<cv::Point2d> corners =
        calibration::findCorners(recorded.eye(false), board, calibration::Effort::thorough);
    if (corners.empty()) {
      continue;
    }
    const BoardTruth truth = truthOf(corners, recorded.camera);
    for (std::size_t n = 0; n < engines.size(); ++n) {
      const Measured found = engines[n].make(recorded.camera, task)->measure(recorded.eye(false), recorded.eye(true));
      const Figures figures = boardFigures(truth, found.range, task.view);
      entries.push_back({"board " + picture.stem().string(), engines[n].name, figures});
      ++boards[n];
      if (figure(figures, "corners") >= 50.0) {
        const double error = std::abs(figure(figures, "error"));
        ++measured[n];
        within[n] += error <= boardError ? 1 : 0;
        worst[n] = std::max(worst[n], error);
      }
    }
  }
  for (std::size_t n = 0; n < engines.size(); ++n) {
    entries.push_back({"boards",
                       engines[n].name,
                       {{"boards, count", boards[n]},
                        {"boards measured, count", measured[n]},
                        {"boards within 1.5 %, count", within[n]},
                        {"worst board", worst[n]}}});
  }
  return entries;
}

std::vector<Entry> judgeScenes(const fs::path& folder, const std::vector<EngineKind>& engines, const Task& task) {
  std::vector<Entry> entries;
  for (const fs::path& picture : picturesOf(folder)) {
    Recorded recorded(picture, folder / "calibration.yml");
    const ClassDepth reference = classDepth(recorded);
    for (const EngineKind& kind : engines) {
      const cv::Mat range = kind.make(recorded.camera, task)->measure(recorded.eye(false), recorded.eye(true)).range;
      entries.push_back({model::formatted("scene %s, %.0f x %.0f degrees", picture.stem().c_str(),
                                          task.view.horizontalField, task.view.verticalField),
                         kind.name, sceneFigures(range, task.view, reference)});
    }
  }
  return entries;
}

}  // namespace stereo::wide
