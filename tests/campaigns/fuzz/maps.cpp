// SPDX-License-Identifier: Apache-2.0
// Calibrations of any values and shapes: the maps equal the plain form's to the bit, or are refused untouched, whoever
// asks for them.
#include <cmath>
#include <string>

#include <unistd.h>
#include <opencv2/imgproc.hpp>

#include "SystemLog.hpp"
#include "bench/baseline/Difference.hpp"
#include "bench/baseline/PlainRectifyMap.hpp"
#include "tests/campaigns/fuzz/Input.hpp"
#include "tests/campaigns/fuzz/Target.hpp"
#include "tests/support/TestCamera.hpp"

// In the place of the C library's: the worker that `startCapture` starts warms a device up that is none here.
extern "C" int usleep(useconds_t /*microseconds*/) { return 0; }

using stereo::fuzz::Input;
using stereo::fuzz::require;
using stereo::fuzz::requireSame;
namespace baseline = stereo::baseline;

namespace {

const cv::Size largest(20, 12);
constexpr double pi = 3.141592653589793;

struct Eye {
  cv::Mat K, D, R;
};

bool isDoubles(const cv::Mat& matrix, int rows, int cols) {
  return matrix.type() == CV_64FC1 && matrix.dims == 2 && matrix.rows >= rows && matrix.cols >= cols;
}

bool isSquare(const cv::Mat& matrix) { return isDoubles(matrix, 3, 3) && matrix.rows == 3 && matrix.cols == 3; }

bool isComplete(const Eye& eye) { return isDoubles(eye.K, 2, 3) && isDoubles(eye.D, 1, 4) && isSquare(eye.R); }

Eye someEye(Input& input) {
  constexpr double K[] = {300, 0.2, 230, 0, 301, 200, 0, 0, 1};
  constexpr double D[] = {-0.1, 0.05, 0.001, -0.001};
  constexpr double R[] = {0.9998, 0.012, -0.014, -0.012, 0.9999, 0.002, 0.014, -0.002, 0.9999};
  Eye eye;
  eye.K = input.matrix(3, 3, K);
  eye.D = input.matrix(1, 4, D);
  eye.R = input.matrix(3, 3, R);
  return eye;
}

// Frames come from here, without a worker.
class EyesCamera : public stereo::test::TestCamera {
public:
  cv::Mat eyes[2];

  EyesCamera() {
    delete m_log;  // what it would report of its progress is dropped
    m_log = nullptr;
  }

  using StereoCamera::getStereoFrame;
  bool getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) override {
    left = eyes[0].clone();
    right = eyes[1].clone();
    timestamp = std::chrono::microseconds(5);
    return true;
  }
};

// What the rectified reads make of maps with these values is what OpenCV makes of the plain form's.
void readThrough(EyesCamera& camera, const cv::Mat& map1, const cv::Mat& map2, const cv::Mat& columns,
                 const cv::Mat& rows, int depthMode) {
  for (int eye = 0; eye < 2; ++eye) {
    camera.m_rectifyMaps[eye][0] = camera.m_lonLatMaps[eye][0] = map1;
    camera.m_rectifyMaps[eye][1] = camera.m_lonLatMaps[eye][1] = map2;
    camera.eyes[eye].create(5, 7, CV_8UC3);
    for (int k = 0; k < 5 * 7 * 3; ++k) {
      camera.eyes[eye].data[k] = static_cast<unsigned char>(k * 37 + eye * 11);
    }
  }
  camera.m_depthmode = depthMode;
  cv::Mat left;
  cv::Mat right;
  cv::Mat view;
  std::chrono::microseconds timestamp{0};
  require(camera.getRectStereoFrame(left, right, view, timestamp) && timestamp.count() == 5,
          "there is a rectified frame");
  cv::Mat expected[2];
  for (int eye = 0; eye < 2; ++eye) {
    cv::remap(camera.eyes[eye], expected[eye], columns, rows, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
  }
  requireSame("left eye", baseline::difference(expected[0], left).c_str());
  requireSame("right eye", baseline::difference(expected[1], right).c_str());
  requireSame("view", baseline::difference(expected[0], view).c_str());
}

// Where the caller's two maps lie: on their own, in larger buffers, or both in the same memory.
struct Maps {
  cv::Mat memory;
  cv::Mat map[2];

  Maps(int layout, cv::Size size, int shift) {
    switch (layout) {
      case 1:
        memory = cv::Mat(size.height + 2, 2 * size.width + 3, CV_32FC1, cv::Scalar(-7));
        map[0] = memory(cv::Rect(1, 1, size.width, size.height));
        map[1] = memory(cv::Rect(2 + size.width, 1, size.width, size.height));
        break;
      case 2:
        memory = cv::Mat(2 * size.height, size.width, CV_32FC1, cv::Scalar(-7));
        map[0] = memory.rowRange(0, size.height);
        map[1] = memory.rowRange(shift % (size.height + 1), shift % (size.height + 1) + size.height);
        break;
      case 3:
        map[0] = map[1] = memory = cv::Mat(size, CV_32FC1, cv::Scalar(-7));
        break;
      case 4:
        map[0] = cv::Mat(3, 2, CV_8UC1, cv::Scalar(7));
        break;
      default:
        break;
    }
  }
};

void tryOneEye(Input& input, EyesCamera& camera) {
  constexpr double P[] = {18, 0, 15.5, 0, 18, 11.5, 0, 0, 1};
  constexpr double lonLatP[] = {12.5, 0, -3.7, 0, 9.4, -2.8, 0, 0, 1};
  const int mode = input.between(-1, 3);
  const Eye eye = someEye(input);
  const cv::Mat view = input.matrix(3, 3, mode == 1 ? lonLatP : P);
  const double xi = input.number(1.5);
  const double xi2 = input.number(1.0);
  const int layout = input.between(0, 7);
  const int shift = input.byte();
  const bool reads = input.flag();
  const int depthMode = input.between(1, 2);
  const cv::Size size{input.between(layout == 7 ? -1 : 0, largest.width), input.between(0, largest.height)};
  Maps given(size.width < 0 ? 0 : layout, size, shift);

  bool refused = false;
  try {
    require(initRectifyMap(eye.K, eye.D, eye.R, view, xi, xi2, size, mode, given.map[0], given.map[1]),
            "maps are made");
  } catch (const cv::Exception&) {
    refused = true;
  }
  const bool suits = isComplete(eye) && isSquare(view) && size.width >= 0;
  require(refused == !suits, "what does not suit is refused, and nothing else");
  const Maps untouched(size.width < 0 ? 0 : layout, size, shift);
  if (refused) {
    if (size.width >= 0) {
      for (const int k : {0, 1}) {
        requireSame("refused map", baseline::difference(untouched.map[k], given.map[k]).c_str());
      }
    }
    return;
  }
  Maps plain(layout, size, shift);
  baseline::initRectifyMap(eye.K, eye.D, eye.R, view, xi, xi2, size, mode, plain.map[0], plain.map[1]);
  requireSame("columns", baseline::difference(plain.map[0], given.map[0]).c_str());
  requireSame("rows", baseline::difference(plain.map[1], given.map[1]).c_str());
  if (!given.memory.empty()) {
    requireSame("memory of both maps", baseline::difference(plain.memory, given.memory).c_str());
  }
  if (reads && !size.empty()) {
    readThrough(camera, given.map[0], given.map[1], plain.map[0], plain.map[1], depthMode);
  }
}

// The maps that a start builds, from members as hostile as the function's arguments.
void tryStart(Input& input, EyesCamera& camera) {
  constexpr double usualXi = 1.5;
  constexpr double translation[] = {-60, 0.5, -0.5};
  Eye eyes[2];
  cv::Mat xi[2];
  const cv::Mat t = input.matrix(3, 1, translation);
  for (int k = 0; k < 2; ++k) {
    eyes[k] = someEye(input);
    xi[k] = input.matrix(1, 1, &usualXi);
    camera.setCalibParams({eyes[k].K, eyes[k].D, xi[k], eyes[k].R, t}, k == 1);
  }
  const cv::Size size{input.between(-1, largest.width), input.between(0, largest.height)};
  camera.m_rectFrameSize = size;
  camera.m_rawFrameSize = cv::Size(input.flag() ? 1856 : input.integer(), 800);
  camera.m_hFov = input.number(90);
  camera.m_lonLatFov = input.number(180);
  const auto scale = static_cast<float>(static_cast<float>(camera.m_rawFrameSize.width) / 1856.0);
  camera.m_rectCameraMatrix.release();
  for (int k = 0; k < 4; ++k) {
    camera.m_rectifyMaps[k / 2][k % 2].release();
    camera.m_lonLatMaps[k / 2][k % 2].release();
  }

  bool refused = false;
  try {
    camera.startCapture(false, false);
  } catch (const cv::Exception&) {
    refused = true;
  }
  camera.stopCapture();

  // The left intrinsic matrix alone is not asked for.
  const bool wanted = !size.empty() && !t.empty() && !xi[0].empty() && !xi[1].empty() && !eyes[0].R.empty() &&
                      !eyes[0].D.empty() && !eyes[1].R.empty() && !eyes[1].K.empty() && !eyes[1].D.empty();
  const bool suits = isComplete(eyes[0]) && isComplete(eyes[1]) && isDoubles(xi[0], 1, 1) && isDoubles(xi[1], 1, 1);
  require(refused == (wanted && !suits), "a calibration that does not suit is refused, and nothing else");
  if (!wanted || refused) {
    require(camera.m_rectifyMaps[0][0].empty() && camera.m_lonLatMaps[1][1].empty(), "no maps without a calibration");
    return;
  }
  const double W = size.width;
  const double H = size.height;
  const double f = (W / 2) / std::tan(camera.m_hFov / 180 * pi / 2);
  const double alpha = camera.m_lonLatFov / 222 * pi;
  const cv::Mat perspective = (cv::Mat_<double>(3, 3) << f, 0, W / 2 - 0.5, 0, f, H / 2 - 0.5, 0, 0, 1);
  const cv::Mat lonLat = (cv::Mat_<double>(3, 3) << W / alpha, 0, -W * (pi - alpha) / (2 * alpha), 0, H / alpha,
                          -H * (pi - alpha) / (2 * alpha), 0, 0, 1);
  for (int k = 0; k < 2; ++k) {
    cv::Mat K = eyes[k].K.clone();
    K.row(0) *= scale;
    K.row(1) *= scale;
    const double mirror = xi[k].at<double>(0, 0);
    cv::Mat columns;
    cv::Mat rows;
    baseline::initRectifyMap(K, eyes[k].D, eyes[k].R, perspective, mirror, mirror, size, 2, columns, rows);
    requireSame("perspective columns", baseline::difference(columns, camera.m_rectifyMaps[k][0]).c_str());
    requireSame("perspective rows", baseline::difference(rows, camera.m_rectifyMaps[k][1]).c_str());
    baseline::initRectifyMap(K, eyes[k].D, eyes[k].R, lonLat, mirror, 0, size, 1, columns, rows);
    requireSame("longitude-latitude columns", baseline::difference(columns, camera.m_lonLatMaps[k][0]).c_str());
    requireSame("longitude-latitude rows", baseline::difference(rows, camera.m_lonLatMaps[k][1]).c_str());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = (stereo::fuzz::prepareOpenCv(), true);
  static EyesCamera camera;
  require(prepared, "OpenCV is prepared");
  Input input(data, size);
  const int first = input.byte();
  stereo::fuzz::chooseInstructionSet(first);
  // A start makes a thread, which takes as long as many other inputs.
  if (first == 255) {
    tryStart(input, camera);
  } else {
    tryOneEye(input, camera);
  }
  return 0;
}
