// SPDX-License-Identifier: Apache-2.0
// Disparities, views and settings of any values and shapes: metric depth, colored depth and both clouds equal the
// plain forms' to the bit, or are refused with the outputs untouched.
#include <algorithm>
#include <condition_variable>
#include <string>
#include <vector>

#include <pthread.h>
#include <opencv2/highgui.hpp>

#include "bench/baseline/Difference.hpp"
#include "bench/baseline/PlainCloud.hpp"
#include "bench/baseline/PlainDepth.hpp"
#include "tests/campaigns/fuzz/Input.hpp"
#include "tests/campaigns/fuzz/Target.hpp"
#include "tests/support/TestCamera.hpp"

// In the places of the libraries': while an input is tried every wait ends at once, as if the worker had just
// published; the images are there already. libFuzzer's own threads wait as ever.
namespace {
thread_local bool isTrying = false;
}
// NOLINTNEXTLINE(cert-dcl58-cpp): a function of the standard library's own is what is replaced
namespace std {
void condition_variable::wait(unique_lock<mutex>& lock) {
  if (!isTrying) {
    pthread_cond_wait(native_handle(), lock.mutex()->native_handle());
  }
}
}  // namespace std
int cv::waitKey(int /*milliseconds*/) { return -1; }

using stereo::core::CloudImages;
using stereo::core::CloudModel;
using stereo::core::DepthModel;
using stereo::fuzz::Input;
using stereo::fuzz::require;
using stereo::fuzz::requireSame;
using stereo::test::TestCamera;
namespace baseline = stereo::baseline;

namespace {

const cv::Size largest(24, 20);

bool isDoubles(const cv::Mat& matrix, int rows, int cols) {
  return matrix.empty() ||
         (matrix.type() == CV_64FC1 && matrix.dims == 2 && matrix.rows >= rows && matrix.cols >= cols);
}

bool isImage(const cv::Mat& image, int type) { return image.empty() || (image.dims == 2 && image.type() == type); }

// Millimeters; OpenCV has no norm for some types.
bool hasNorm(const cv::Mat& translation, double& norm) {
  try {
    norm = translation.empty() ? 0.0 : cv::norm(translation, cv::NORM_L2);
    return true;
  } catch (const cv::Exception&) {
    return false;
  }
}

// What the camera is given, and what its outputs are computed from a second time.
struct Case {
  cv::Mat disparity, view, translation, cameraMatrix, xi;
  DepthModel depth;
  CloudModel cloud;
  bool hasDepth;  // nothing that the depth is computed from is refused
  bool hasCloud;

  Case(Input& input, TestCamera& camera) {
    constexpr double usualTranslation[] = {-60, 0.5, -0.5};
    constexpr double usualCamera[] = {16, 0, 15.5, 0, 16, 11.5, 0, 0, 1};
    constexpr double usualXi = 1.5;
    const int mode = input.between(0, 15);
    camera.m_depthmode = mode == 15 ? input.integer() : 1 + mode % 2;
    camera.m_minDepth = static_cast<float>(input.number(0.05));
    camera.m_maxDepth = static_cast<float>(input.number(1.0));
    camera.m_lonLatFov = input.number(180);
    camera.m_rectFrameSize = cv::Size(input.flag() ? 32 : input.integer(), 24);
    camera.m_threshold = input.integer();
    translation = input.matrix(3, 1, usualTranslation);
    cameraMatrix = input.matrix(3, 3, usualCamera);
    xi = input.matrix(1, 1, &usualXi);
    disparity = input.image(CV_32FC1, largest, 8);
    view = input.image(CV_8UC3, largest, 100);

    camera.m_translation = translation;
    camera.m_rectCameraMatrix = cameraMatrix;
    camera.m_leftXi = xi;
    camera.m_disparityFrame.first = view;
    camera.m_disparityFrame.second = disparity;
    camera.m_rawFrame.timestamp = std::chrono::microseconds(77);

    depth.mode = cloud.mode = camera.m_depthmode;
    depth.minDepth = camera.m_minDepth;
    depth.maxDepth = camera.m_maxDepth;
    depth.lonLatFov = camera.m_lonLatFov;
    depth.W = camera.m_rectFrameSize.width;
    cloud.threshold = camera.m_threshold;
    double norm = 0;
    hasDepth = isImage(disparity, CV_32FC1) && isDoubles(cameraMatrix, 1, 1) && hasNorm(translation, norm);
    hasCloud = hasDepth && isDoubles(cameraMatrix, 3, 3) && isDoubles(xi, 1, 1);
    depth.b = static_cast<float>(0.001 * norm);
    cloud.baselineMillimeters = norm;
    if (hasDepth && !cameraMatrix.empty()) {
      depth.f = cameraMatrix.at<double>(0, 0);
    }
    if (hasCloud && !cameraMatrix.empty()) {
      cloud.fx = cameraMatrix.at<double>(0, 0);
      cloud.fy = cameraMatrix.at<double>(1, 1);
      cloud.cx = cameraMatrix.at<double>(0, 2);
      cloud.cy = cameraMatrix.at<double>(1, 2);
    }
    if (hasCloud && !xi.empty()) {
      cloud.xi = xi.at<double>(0, 0);
    }
  }
};

// Deep; an empty image keeps its size and type.
cv::Mat copyOf(const cv::Mat& image) { return image.empty() ? image : image.clone(); }

template <typename Call>
bool isRefused(const Call& call) {
  try {
    call();
    return false;
  } catch (const cv::Exception&) {
    return true;
  }
}

// Some image that a caller still has from before; the same for the same number.
cv::Mat formerOutput(int number, cv::Size size) {
  switch (number % 4) {
    case 0:
      return {};
    case 1:
      return cv::Mat(3, 5, CV_8UC1, cv::Scalar(9));
    case 2:
      return cv::Mat(size, CV_32FC1, cv::Scalar(9));
    default:
      return cv::Mat(size.height + 1, size.width + 1, CV_32FC1,
                     cv::Scalar(9))(cv::Rect(0, 0, std::max(size.width, 0), std::max(size.height, 0)));
  }
}

void tryMetric(TestCamera& camera, const Case& given, int output, cv::Mat& expected) {
  const cv::Size size = given.disparity.dims == 2 ? given.disparity.size() : cv::Size(2, 2);
  cv::Mat disparity = copyOf(given.disparity);
  // Also in place, and onto the disparity's memory or a part of it.
  cv::Mat depth = output % 16 < 14 ? formerOutput(output, size) : disparity;
  if (output % 16 == 15 && disparity.dims == 2) {
    depth = disparity.rowRange(0, disparity.rows / 2);
  }
  const bool inPlace = output % 16 == 13;
  const bool refused = isRefused([&] { camera.getDepthFrame(disparity, inPlace ? disparity : depth); });
  require(refused == !given.hasDepth, "what has no depth is refused, and nothing else");
  if (refused) {
    if (output % 16 < 13) {
      const cv::Mat former = formerOutput(output, size);
      requireSame("refused depth", baseline::difference(former, depth).c_str());
    }
    return;
  }
  if (given.disparity.dims > 2) {  // and without elements, or it would have been refused
    require((inPlace ? disparity : depth).empty(), "no disparity, no depth");
    return;
  }
  baseline::metricDepth(given.disparity, given.depth, expected);
  requireSame("depth", baseline::difference(expected, inPlace ? disparity : depth).c_str());
}

void tryColored(TestCamera& camera, const Case& given, int output) {
  cv::Mat picture = output % 2 == 0 ? cv::Mat()
                                    : cv::Mat(given.disparity.dims == 2 ? given.disparity.size() : cv::Size(2, 2),
                                              CV_8UC3, cv::Scalar(9, 9, 9));
  const cv::Mat former = copyOf(picture);
  std::chrono::microseconds timestamp{0};
  bool has = false;
  camera.m_isComputing = true;
  const bool refused = isRefused([&] { has = camera.getDepthFrame(picture, true, timestamp); });
  camera.m_isComputing = false;
  require(timestamp.count() == 77, "the stamp is the newest frame's");
  if (given.disparity.empty()) {
    require(!refused && !has, "no disparity, no picture");
    requireSame("picture left alone", baseline::difference(former, picture).c_str());
    return;
  }
  require(refused == !given.hasDepth, "what has no depth is refused, and nothing else");
  if (refused) {
    requireSame("refused picture", baseline::difference(former, picture).c_str());
    return;
  }
  require(has, "there is a picture");
  cv::Mat expected;
  baseline::coloredDepth(given.disparity, given.depth, expected);
  requireSame("picture", baseline::difference(expected, picture).c_str());
}

template <typename Point, typename PlainForm>
void tryCloud(TestCamera& camera, const Case& given, bool suits, const char* what, const PlainForm& plainForm) {
  std::vector<Point> points(1);
  std::vector<Point> expected(1);
  std::chrono::microseconds timestamp{0};
  bool has = false;
  const bool refused = isRefused([&] { has = camera.getPointCloud(points, timestamp); });
  require(refused == !(given.hasCloud && suits), "images that do not suit are refused, and nothing else");
  if (!refused) {
    require(has && timestamp.count() == 77, "with one point there before there is a cloud");
    plainForm(expected);
  }
  requireSame(what, baseline::difference(expected, points).c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = (stereo::fuzz::prepareOpenCv(), true);
  static TestCamera camera;
  require(prepared, "OpenCV is prepared");
  Input input(data, size);
  stereo::fuzz::chooseInstructionSet(input.byte());
  const int output = input.byte();
  const Case given(input, camera);
  isTrying = true;
  cv::Mat meters;
  tryMetric(camera, given, output, meters);
  tryColored(camera, given, output);
  const CloudImages images{given.view, given.disparity, meters};
  tryCloud<cv::Vec3f>(camera, given, true, "plain cloud",
                      [&](auto& points) { baseline::plainCloud(images, given.cloud, points); });
  tryCloud<PCL>(camera, given, isImage(given.view, CV_8UC3), "coloured cloud",
                [&](auto& points) { baseline::coloredCloud(images, given.cloud, points); });
  isTrying = false;
  return 0;
}
