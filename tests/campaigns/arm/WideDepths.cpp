// SPDX-License-Identifier: Apache-2.0
#include <random>
#include <string>

#include <opencv2/imgproc.hpp>

#include "WideDepth.hpp"
#include "tests/campaigns/arm/Results.hpp"

namespace stereo::arm {

namespace {

const cv::Size eyeSize(464, 400);

// Patches of random gray, smooth enough to be matched; integers only.
cv::Mat texture(cv::Size size) {
  std::mt19937 engine(11);
  cv::Mat coarse(size.height / 3 + 2, size.width / 3 + 2, CV_8UC1);
  for (std::size_t k = 0; k < coarse.total(); ++k) {
    coarse.data[k] = static_cast<unsigned char>(engine() % 256U);
  }
  cv::Mat image(size, CV_8UC3);
  for (int row = 0; row < size.height; ++row) {
    for (int column = 0; column < size.width; ++column) {
      const int y = row / 3;
      const int x = column / 3;
      const int across = column % 3;
      const int down = row % 3;
      const int value =
          ((coarse.at<unsigned char>(y, x) * (3 - across) + coarse.at<unsigned char>(y, x + 1) * across) * (3 - down) +
           (coarse.at<unsigned char>(y + 1, x) * (3 - across) + coarse.at<unsigned char>(y + 1, x + 1) * across) *
               down) /
          9;
      const auto gray = static_cast<unsigned char>(value);
      image.at<cv::Vec3b>(row, column) = {gray, static_cast<unsigned char>(255 - gray / 2), gray};
    }
  }
  return image;
}

WideDepthCalibration calibration() {
  WideDepthCalibration all;
  all.leftIntrinsic = (cv::Mat_<double>(3, 3) << 650, 0.2, 463, 0, 651, 401, 0, 0, 1);
  all.rightIntrinsic = (cv::Mat_<double>(3, 3) << 652, -0.1, 465, 0, 651, 399, 0, 0, 1);
  all.leftDistortion = (cv::Mat_<double>(1, 4) << -0.06, 0.01, 0.0003, -0.0002);
  all.rightDistortion = (cv::Mat_<double>(1, 4) << -0.05, 0.008, -0.0001, 0.0003);
  all.leftXi = (cv::Mat_<double>(1, 1) << 1.5);
  all.rightXi = (cv::Mat_<double>(1, 1) << 1.48);
  all.leftRotation = cv::Mat::eye(3, 3, CV_64F);
  all.rightRotation = cv::Mat::eye(3, 3, CV_64F);
  all.translation = (cv::Mat_<double>(3, 1) << -60, 0, 0);
  return all;
}

}  // namespace

void writeWideDepths(const Writer& out) {
  const cv::Mat scene = texture({eyeSize.width + 40, eyeSize.height + 4});
  // Rows that are off by one, for the row correction.
  const cv::Mat left = scene(cv::Rect(0, 1, eyeSize.width, eyeSize.height)).clone();
  const cv::Mat right = scene(cv::Rect(12, 0, eyeSize.width, eyeSize.height)).clone();
  for (const int width : {232, 580}) {
    WideDepthOptions options;
    options.size = {width, width * 200 / 232};
    options.horizontalField = 160;
    options.verticalField = 140;
    options.fuse = true;
    WideDepth depth(calibration(), eyeSize, options);
    WideDepthImage image;
    for (int frame = 0; frame < 3; ++frame) {
      depth.compute(left, right, image);
      const std::string name = "wide-" + std::to_string(width) + "-" + std::to_string(frame);
      out.write(name + "-range", image.range);
      out.write(name + "-state", image.state);
      out.write(name + "-confidence", image.confidence);
      out.write(name + "-view", image.view);
    }
    out.write("wide-" + std::to_string(width) + "-rays", depth.rays());
    out.write("wide-" + std::to_string(width) + "-correction", std::vector<float>{static_cast<float>(depth.rowCorrection())});
  }
}

}  // namespace stereo::arm
