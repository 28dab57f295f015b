// SPDX-License-Identifier: Apache-2.0
// Wide depth with options, calibrations and eyes of any kind: they are refused, or the results keep their promises and
// are the same with every instruction set.
#include <cmath>
#include <memory>

#include "WideDepth.hpp"
#include "tests/campaigns/fuzz/Input.hpp"
#include "tests/campaigns/fuzz/Target.hpp"

using stereo::RangeState;
using stereo::WideDepth;
using stereo::WideDepthCalibration;
using stereo::WideDepthImage;
using stereo::WideDepthOptions;
using stereo::fuzz::Input;
using stereo::fuzz::require;

namespace {

const cv::Size eyeSize(48, 40);

WideDepthOptions someOptions(Input& input) {
  WideDepthOptions options;
  // Larger views take too long for a target.
  options.size = {input.between(30, 72), input.between(30, 64)};
  options.horizontalField = input.number(170);
  options.verticalField = input.number(150);
  options.nearest = input.number(0.15);
  options.farthest = input.number(10);
  options.threads = input.between(-1, 2);
  options.selfCalibrate = input.flag();
  options.fuse = input.flag();
  return options;
}

WideDepthCalibration someCalibration(Input& input) {
  constexpr double K[] = {650, 0.2, 464, 0, 651, 400, 0, 0, 1};
  constexpr double D[] = {-0.1, 0.05, 0.001, -0.001};
  constexpr double R[] = {0.99983007,  0.01195782, -0.01394894, -0.01198623, 0.99992626,
                          -0.00195357, 0.01392455, 0.00212043,  0.9999008};
  constexpr double xi = 1.5;
  constexpr double t[] = {-60, 0.5, -0.5};
  WideDepthCalibration calibration;
  calibration.leftIntrinsic = input.matrix(3, 3, K);
  calibration.leftDistortion = input.matrix(1, 4, D);
  calibration.leftXi = input.matrix(1, 1, &xi);
  calibration.leftRotation = input.matrix(3, 3, R);
  calibration.rightIntrinsic = input.matrix(3, 3, K);
  calibration.rightDistortion = input.matrix(1, 4, D);
  calibration.rightXi = input.matrix(1, 1, &xi);
  calibration.rightRotation = input.matrix(3, 3, R);
  calibration.translation = input.matrix(3, 1, t);
  calibration.frameWidth = input.number(1856);
  return calibration;
}

// Texture, shifted in the right eye, with some of the input's bytes in it.
cv::Mat someEye(Input& input, int shift) {
  const int channels = input.between(0, 15) == 0 ? 1 : 3;
  cv::Mat eye(eyeSize, CV_8UC(channels));
  for (int row = 0; row < eye.rows; ++row) {
    for (int column = 0; column < eye.cols * channels; ++column) {
      const int x = column / channels + shift;
      eye.at<unsigned char>(row, column) = static_cast<unsigned char>((x * x * 7 + row * row * 5 + x * row * 3) % 251);
    }
  }
  for (int k = input.between(0, 20); k > 0; --k) {
    const int row = input.between(0, eye.rows - 1);
    const int column = input.between(0, eye.cols * channels - 1);
    eye.at<unsigned char>(row, column) = input.byte();
  }
  return eye;
}

void requirePromises(const WideDepthImage& image, const WideDepthOptions& options) {
  require(image.range.size() == options.size && image.view.size() == options.size, "the images have the view's size");
  for (int row = 0; row < image.range.rows; ++row) {
    for (int column = 0; column < image.range.cols; ++column) {
      const float range = image.range.at<float>(row, column);
      const int state = image.state.at<unsigned char>(row, column);
      const int confidence = image.confidence.at<unsigned char>(row, column);
      require(state <= static_cast<int>(RangeState::tooFar), "the state is one of the states");
      require((range > 0) == (state == 0) && (confidence > 0) == (state == 0), "measured is what has a range");
      require(range == 0 || (range >= static_cast<float>(options.nearest) * 0.9999F &&
                             range <= static_cast<float>(options.farthest) * 1.0001F),
              "ranges are within the limits");
    }
  }
}

bool areSame(const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b, cv::NORM_INF) == 0.0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = (stereo::fuzz::prepareOpenCv(), true);
  require(prepared, "OpenCV is prepared");
  Input input(data, size);
  const int set = input.byte();
  const WideDepthOptions options = someOptions(input);
  const WideDepthCalibration calibration = someCalibration(input);
  const cv::Mat left = someEye(input, 0);
  const cv::Mat right = someEye(input, input.between(-4, 12));
  WideDepthImage images[2];
  for (const int turn : {0, 1}) {
    stereo::fuzz::chooseInstructionSet(set + turn);
    std::unique_ptr<WideDepth> depth;
    try {
      depth = std::make_unique<WideDepth>(calibration, eyeSize, options);
    } catch (const cv::Exception&) {
      return 0;
    }
    try {
      depth->compute(left, right, images[turn]);
      depth->compute(left, right, images[turn]);
    } catch (const cv::Exception&) {
      require(left.type() != right.type(), "eyes that suit are measured");
      return 0;
    }
    requirePromises(images[turn], options);
    cv::Mat cloud;
    std::vector<stereo::WidePoint> points;
    depth->organizedCloud(images[turn], cloud);
    depth->points(images[turn], points);
    require(static_cast<int>(points.size()) == cv::countNonZero(images[turn].range), "a point for each range");
  }
  require(areSame(images[0].range, images[1].range) && areSame(images[0].state, images[1].state) &&
              areSame(images[0].confidence, images[1].confidence) && areSame(images[0].view, images[1].view),
          "all instruction sets give the same");
  return 0;
}
