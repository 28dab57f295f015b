// SPDX-License-Identifier: Apache-2.0
#include "sim/GroundTruth.hpp"

#include <cmath>
#include <utility>

#include "model/CameraFacts.hpp"
#include "sim/ParallelRows.hpp"

namespace stereo::sim {

View View::perspective(const cv::Size& size, double horizontalFieldDegrees) {
  View view;
  view.m_size = size;
  view.m_scaleX = view.m_scaleY = 0.5 * size.width / std::tan(horizontalFieldDegrees / 360.0 * CV_PI);
  view.m_centerX = 0.5 * size.width - 0.5;
  view.m_centerY = 0.5 * size.height - 0.5;
  return view;
}

View View::lonLat(const cv::Size& size, double rangeDegrees) {
  View view;
  const double alpha = rangeDegrees / 222.0 * CV_PI;
  view.m_isLonLat = true;
  view.m_size = size;
  view.m_scaleX = size.width / alpha;
  view.m_scaleY = size.height / alpha;
  view.m_centerX = 0.5 * size.width;
  view.m_centerY = 0.5 * size.height;
  return view;
}

cv::Vec3d View::ray(double col, double row) const {
  const double x = (col - m_centerX) / m_scaleX;
  const double y = (row - m_centerY) / m_scaleY;
  if (m_isLonLat) {
    const double a = 0.5 * CV_PI + x;
    const double b = 0.5 * CV_PI + y;
    return {-std::cos(a), -std::sin(a) * std::cos(b), std::sin(a) * std::sin(b)};
  }
  return cv::normalize(cv::Vec3d(x, y, 1.0));
}

cv::Point2d View::pixel(const cv::Vec3d& point) const {
  if (m_isLonLat) {
    const double a = std::atan2(std::hypot(point[1], point[2]), -point[0]);
    const double b = std::atan2(point[2], -point[1]);
    return {m_centerX + m_scaleX * (a - 0.5 * CV_PI), m_centerY + m_scaleY * (b - 0.5 * CV_PI)};
  }
  return {m_centerX + m_scaleX * point[0] / point[2], m_centerY + m_scaleY * point[1] / point[2]};
}

GroundTruth::GroundTruth(std::shared_ptr<const Scene> scene, const Rig& rig) : m_scene(std::move(scene)), m_rig(rig) {}

bool GroundTruth::inBothImages(const cv::Vec3d& point) const {
  const cv::Size full = model::fullFrameSize();
  return m_rig.project(false, point, full) && m_rig.project(true, point, full);
}

Truth GroundTruth::at(const View& view, double time) const {
  const SceneSnapshot snapshot = m_scene->at(time);
  const cv::Vec3d leftEye = m_rig.eye(false).position;
  const cv::Vec3d rightEye = m_rig.eye(true).position;
  const cv::Size size = view.size();
  Truth truth;
  truth.depth.create(size, CV_64FC1);
  truth.distance.create(size, CV_64FC1);
  truth.disparity.create(size, CV_64FC1);
  truth.surface.create(size, CV_32SC1);
  truth.occluded = cv::Mat::zeros(size, CV_8UC1);
  truth.seen = cv::Mat::zeros(size, CV_8UC1);
  forEachRow(size.height, [&](int row) {
    for (int col = 0; col < size.width; ++col) {
      const Hit hit = snapshot.trace(leftEye, view.ray(col, row));
      truth.depth.at<double>(row, col) = hit.point[2];
      truth.distance.at<double>(row, col) = hit.distance;
      truth.disparity.at<double>(row, col) = col - view.pixel(hit.point - rightEye).x;
      truth.surface.at<int>(row, col) = hit.surface;
      if (!snapshot.visible(rightEye, hit.point)) {
        truth.occluded.at<unsigned char>(row, col) = 255;
      } else if (inBothImages(hit.point)) {
        truth.seen.at<unsigned char>(row, col) = 255;
      }
    }
  });
  return truth;
}

RangeTruth GroundTruth::along(const cv::Mat& rays, double time) const {
  const SceneSnapshot snapshot = m_scene->at(time);
  const cv::Vec3d rightEye = m_rig.eye(true).position;
  RangeTruth truth;
  truth.range.create(rays.size(), CV_32FC1);
  truth.surface.create(rays.size(), CV_32SC1);
  truth.seen.create(rays.size(), CV_8UC1);
  forEachRow(rays.rows, [&](int row) {
    for (int col = 0; col < rays.cols; ++col) {
      const Hit hit = snapshot.trace(m_rig.eye(false).position, cv::normalize(cv::Vec3d(rays.at<cv::Vec3f>(row, col))));
      truth.range.at<float>(row, col) = static_cast<float>(hit.distance);
      truth.surface.at<int>(row, col) = hit.surface;
      const bool isSeen = snapshot.visible(rightEye, hit.point) && inBothImages(hit.point);
      truth.seen.at<unsigned char>(row, col) = isSeen ? 255 : 0;
    }
  });
  return truth;
}

}  // namespace stereo::sim
