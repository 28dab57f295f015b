// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/Peers.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "model/CameraFacts.hpp"

namespace stereo::wide {

namespace {

/// Pair of maps for cv::remap: where one eye sees the rays of the view. -1 where it does not.
std::pair<cv::Mat, cv::Mat> mapsOf(const std::vector<cv::Mat>& params, const cv::Size& eye, const cv::Mat& rays) {
  const model::OmniModel model = modelOf(params, eye.width);
  const cv::Matx33d toEye = cv::Matx33d(params[3]).t();
  std::pair<cv::Mat, cv::Mat> maps{cv::Mat(rays.size(), CV_32FC1, cv::Scalar(-1)),
                                   cv::Mat(rays.size(), CV_32FC1, cv::Scalar(-1))};
  for (int row = 0; row < rays.rows; ++row) {
    for (int col = 0; col < rays.cols; ++col) {
      if (const auto pixel = model.project(toEye * cv::Vec3d(rays.at<cv::Vec3f>(row, col)))) {
        maps.first.at<float>(row, col) = static_cast<float>(pixel->x);
        maps.second.at<float>(row, col) = static_cast<float>(pixel->y);
      }
    }
  }
  return maps;
}

class MatcherEngine : public Engine {
public:
  MatcherEngine(const Camera& camera, const Task& task, cv::Ptr<cv::StereoMatcher> matcher)
      : m_task(task),
        m_baseline(0.001 * cv::norm(camera.params[1][4])),
        m_rectifier(camera, task.view),
        m_matcher(std::move(matcher)) {}

  Measured measure(const cv::Mat& left, const cv::Mat& right) override {
    cv::Mat sixteenths;
    m_matcher->compute(m_rectifier.gray(left, false), m_rectifier.gray(right, true), sixteenths);
    Measured measured;
    measured.range = cv::Mat::zeros(m_task.view.size, CV_32FC1);
    const double step = m_task.view.longitude(1) - m_task.view.longitude(0);
    for (int row = 0; row < sixteenths.rows; ++row) {
      for (int col = 0; col < sixteenths.cols; ++col) {
        const double parallax = sixteenths.at<short>(row, col) / 16.0 * step;
        if (parallax <= 0.0) {
          continue;
        }
        const double longitude = m_task.view.longitude(col);
        const double range = m_baseline * (std::cos(longitude) / std::tan(parallax) + std::sin(longitude));
        if (range > 0.0 && range <= m_task.farthest) {
          measured.range.at<float>(row, col) = static_cast<float>(range);
        }
      }
    }
    return measured;
  }

private:
  Task m_task;
  double m_baseline;
  Rectifier m_rectifier;
  cv::Ptr<cv::StereoMatcher> m_matcher;
};

// A multiple of 16.
int disparitiesOf(const View& view) { return std::max(1, cvRound(view.size.width / 464.0 * 6.0)) * 16; }

}  // namespace

Rectifier::Rectifier(const Camera& camera, const View& view) {
  const cv::Mat rays = view.rays();
  for (const int eye : {0, 1}) {
    m_maps[eye] = mapsOf(camera.params[eye], camera.eye, rays);
  }
}

cv::Mat Rectifier::gray(const cv::Mat& eyeImage, bool isRight) const {
  const auto& [columns, rows] = m_maps[isRight ? 1 : 0];
  cv::Mat gray;
  cv::remap(eyeImage, gray, columns, rows, cv::INTER_LINEAR);
  if (gray.channels() == 3) {
    cv::cvtColor(gray, gray, cv::COLOR_BGR2GRAY);
  }
  return gray;
}

cv::Ptr<cv::StereoMatcher> blockMatcher(const View& view) {
  auto matcher = cv::StereoBM::create(disparitiesOf(view), 15);
  matcher->setUniquenessRatio(15);
  matcher->setSpeckleWindowSize(100);
  matcher->setSpeckleRange(32);
  matcher->setDisp12MaxDiff(1);
  return matcher;
}

cv::Ptr<cv::StereoMatcher> semiGlobalMatcher(const View& view) {
  constexpr int block = 7;
  return cv::StereoSGBM::create(0, disparitiesOf(view), block, 8 * block * block, 32 * block * block, 1, 0, 10, 100, 2);
}

std::vector<EngineKind> peerEngines() {
  return {{"StereoBM",
           [](const Camera& camera, const Task& task) {
             return std::make_unique<MatcherEngine>(camera, task, blockMatcher(task.view));
           }},
          {"StereoSGBM", [](const Camera& camera, const Task& task) {
             return std::make_unique<MatcherEngine>(camera, task, semiGlobalMatcher(task.view));
           }}};
}

Camera cameraOf(const sim::Rig& rig) {
  return {{rig.calibParams(false), rig.calibParams(true)}, {model::fullFrameWidth / 2, model::fullFrameHeight}};
}

model::OmniModel modelOf(const std::vector<cv::Mat>& params, int eyeWidth) {
  const cv::Matx33d K(params[0]);
  const cv::Mat& D = params[1];
  model::OmniModel model;
  model.fx = K(0, 0);
  model.skew = K(0, 1);
  model.cx = K(0, 2);
  model.fy = K(1, 1);
  model.cy = K(1, 2);
  model.k1 = D.at<double>(0);
  model.k2 = D.at<double>(1);
  model.p1 = D.at<double>(2);
  model.p2 = D.at<double>(3);
  model.xi = params[2].at<double>(0);
  return model.scaled(2.0 * eyeWidth / model::fullFrameWidth);
}

}  // namespace stereo::wide
