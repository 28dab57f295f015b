// SPDX-License-Identifier: Apache-2.0
#include "tests/support/TestCamera.hpp"

#include <opencv2/calib3d.hpp>

namespace stereo::test {

TestCamera::~TestCamera() { stopWorkers(); }

void TestCamera::install(cv::VideoCapture* device) {
  delete m_videoCapture;
  m_videoCapture = device;
  m_isOpened = true;
}

std::vector<cv::Mat> someCalibration(int number) {
  cv::RNG random(static_cast<std::uint64_t>(number) + 1);
  const double f = random.uniform(500.0, 700.0);
  const cv::Mat K = (cv::Mat_<double>(3, 3) << f, random.uniform(-0.5, 0.5), random.uniform(440.0, 490.0), 0,
                     f * random.uniform(0.99, 1.01), random.uniform(380.0, 420.0), 0, 0, 1);
  const cv::Mat D = (cv::Mat_<double>(1, 4) << random.uniform(-0.2, 0.2), random.uniform(-0.1, 0.1),
                     random.uniform(-0.002, 0.002), random.uniform(-0.002, 0.002));
  const cv::Mat xi = (cv::Mat_<double>(1, 1) << random.uniform(0.8, 2.0));
  cv::Mat R;
  cv::Rodrigues(cv::Vec3d(random.uniform(-0.05, 0.05), random.uniform(-0.05, 0.05), random.uniform(-0.05, 0.05)), R);
  const cv::Mat T = (cv::Mat_<double>(3, 1) << -60.0, random.uniform(-1.0, 1.0), random.uniform(-1.0, 1.0));
  return {K, D, xi, R, T};
}

void calibrate(StereoCamera& camera) {
  camera.setCalibParams(someCalibration(1), false);
  camera.setCalibParams(someCalibration(2), true);
}

}  // namespace stereo::test
