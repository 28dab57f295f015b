// SPDX-License-Identifier: Apache-2.0
// Virtual operations of the camera overridden in Python.
#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "python/Arrays.hpp"
#include "python/Camera.hpp"
#include "python/Results.hpp"

namespace stereo::python {

/// A camera whose class was derived in Python. Its virtual operations call the Python object's overrides, if there are
/// any, with the interpreter lock; the C++ forms run without it.
///
/// If an override raises or returns a malformed result, the exception goes to the Python code that called the camera on
/// this thread. On a worker it is reported (`sys.unraisablehook`); operations that return a bool then return false, and
/// the others behave as if not overridden.
template <typename Base>
class Overrides final : public Handle<Base> {
public:
  using Handle<Base>::Handle;

  bool isOpened() override {
    return ask(
        "isOpened", [&] { return Base::isOpened(); }, [](auto call) { return truthOf(call()); });
  }
  bool setLogLevel(int level) override {
    return ask(
        "setLogLevel", [&] { return Base::setLogLevel(level); }, [&](auto call) { return truthOf(call(level)); });
  }
  bool setPosNumber(int posNumber) override {
    return ask(
        "setPosNumber", [&] { return Base::setPosNumber(posNumber); },
        [&](auto call) { return truthOf(call(posNumber)); });
  }
  bool setSerialNumber(int serialNumber) override {
    return ask(
        "setSerialNumber", [&] { return Base::setSerialNumber(serialNumber); },
        [&](auto call) { return truthOf(call(serialNumber)); });
  }
  bool setRawFrameRate(int framesPerSecond) override {
    return ask(
        "setRawFrameRate", [&] { return Base::setRawFrameRate(framesPerSecond); },
        [&](auto call) { return truthOf(call(framesPerSecond)); });
  }
  bool setRawFrameSize(cv::Size size) override {
    return ask(
        "setRawFrameSize", [&] { return Base::setRawFrameSize(size); },
        [&](auto call) { return truthOf(call(fromSize(size))); });
  }
  bool setRectFrameSize(cv::Size size) override {
    return ask(
        "setRectFrameSize", [&] { return Base::setRectFrameSize(size); },
        [&](auto call) { return truthOf(call(fromSize(size))); });
  }
  bool setCalibParams(std::vector<cv::Mat> params, bool isRight) override {
    return ask(
        "setCalibParams", [&] { return Base::setCalibParams(params, isRight); },
        [&](auto call) { return truthOf(call(listOf(params), isRight)); });
  }
  int getLogLevel() const override {
    return ask(
        "getLogLevel", [&] { return Base::getLogLevel(); }, [](auto call) { return number<int>(call()); });
  }
  int getDeviceNode() const override {
    return ask(
        "getDeviceNode", [&] { return Base::getDeviceNode(); }, [](auto call) { return number<int>(call()); });
  }
  int getPosNumber() const override {
    return ask(
        "getPosNumber", [&] { return Base::getPosNumber(); }, [](auto call) { return number<int>(call()); });
  }
  int getSerialNumber() const override {
    return ask(
        "getSerialNumber", [&] { return Base::getSerialNumber(); }, [](auto call) { return number<int>(call()); });
  }
  float getRawFrameRate() const override {
    return ask(
        "getRawFrameRate", [&] { return Base::getRawFrameRate(); }, [](auto call) { return number<float>(call()); });
  }
  cv::Size getRawFrameSize() const override {
    return ask(
        "getRawFrameSize", [&] { return Base::getRawFrameSize(); },
        [](auto call) { return toSize(call(), "getRawFrameSize"); });
  }

  bool getRawFrame(cv::Mat& frame, Stamp& timestamp) override {
    return ask(
        "getRawFrame", [&] { return Base::getRawFrame(frame, timestamp); },
        [&](auto call) {
          return unlessNone(call(), "getRawFrame", 2, [&](const py::sequence& values) {
            const Wrapped image = wrapImage(values[0], "the frame of getRawFrame");
            timestamp = toTimestamp(values[1], "getRawFrame");
            frame = image.image.clone();
          });
        });
  }
  bool getStereoFrame(cv::Mat& left, cv::Mat& right, Stamp& timestamp) override {
    return ask(
        "getStereoFrame", [&] { return Base::getStereoFrame(left, right, timestamp); },
        [&](auto call) {
          return unlessNone(call(), "getStereoFrame", 3, [&](const py::sequence& values) {
            const Wrapped images[] = {wrapImage(values[0], "the left image of getStereoFrame"),
                                      wrapImage(values[1], "the right image of getStereoFrame")};
            timestamp = toTimestamp(values[2], "getStereoFrame");
            left = images[0].image.clone();
            right = images[1].image.clone();
          });
        });
  }
  bool getRectStereoFrame(cv::Mat& left, cv::Mat& right) override {
    return ask(
        "getRectStereoFrame", [&] { return Base::getRectStereoFrame(left, right); },
        [&](auto call) {
          return unlessNone(call(), "getRectStereoFrame", 2,
                            [&](const py::sequence& values) { takePair(values, left, right); });
        });
  }
  bool getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view, Stamp& timestamp) override {
    return ask(
        "getRectStereoFrame", [&] { return Base::getRectStereoFrame(left, right, view, timestamp); },
        [&](auto call) {
          return unlessNone(call(py::arg("view") = true), "getRectStereoFrame", 4, [&](const py::sequence& values) {
            const Wrapped third = wrapImage(values[2], "the view of getRectStereoFrame");
            const Stamp returned = toTimestamp(values[3], "getRectStereoFrame");
            takePair(values, left, right);
            view = third.image.clone();
            timestamp = returned;
          });
        });
  }
  // The three-image form calls the one above, in Python as in C++.
  bool getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view) override {
    return Base::getRectStereoFrame(left, right, view);
  }
  bool getDepthFrame(cv::Mat& depth, bool color, Stamp& timestamp) override {
    return ask(
        "getDepthFrame", [&] { return Base::getDepthFrame(depth, color, timestamp); },
        [&](auto call) {
          return unlessNone(call(py::arg("color") = color), "getDepthFrame", 2, [&](const py::sequence& values) {
            const Wrapped image = wrapImage(values[0], "the picture of getDepthFrame");
            timestamp = toTimestamp(values[1], "getDepthFrame");
            depth = image.image.clone();
          });
        });
  }
  void getDepthFrame(cv::Mat& disparity, cv::Mat& depth) override {
    ask(
        "getDepthFrame", [&] { Base::getDepthFrame(disparity, depth); },
        [&](auto call) { depth = wrapDisparity(call(copyToArray(disparity)), "the depth").image.clone(); });
  }
  bool getPointCloud(std::vector<cv::Vec3f>& points, Stamp& timestamp) override {
    return ask(
        "getPointCloud", [&] { return Base::getPointCloud(points, timestamp); },
        [&](auto call) {
          return unlessNone(call(), "getPointCloud", 2, [&](const py::sequence& values) {
            append(points, toPoints(values[0], "getPointCloud"));
            timestamp = toTimestamp(values[1], "getPointCloud");
          });
        });
  }
  bool getPointCloud(std::vector<PCL>& points, Stamp& timestamp) override {
    return ask(
        "getPointCloud", [&] { return Base::getPointCloud(points, timestamp); },
        [&](auto call) {
          return unlessNone(call(py::arg("colored") = true), "getPointCloud", 3, [&](const py::sequence& values) {
            append(points, toPoints(values[0], values[1], "getPointCloud"));
            timestamp = toTimestamp(values[2], "getPointCloud");
          });
        });
  }
  bool getCalibParams(std::vector<cv::Mat>& params, bool isRight) override {
    return ask(
        "getCalibParams", [&] { return Base::getCalibParams(params, isRight); },
        [&](auto call) {
          for (const py::handle& matrix : requireElements(call(isRight), "getCalibParams", 6)) {
            params.push_back(wrapMatrix(matrix, "a matrix of getCalibParams", 0, 0).image.clone());
          }
          return true;
        });
  }

  bool loadConfig(std::string path) override {
    return ask(
        "loadConfig", [&] { return Base::loadConfig(path); }, [&](auto call) { return truthOf(call(path)); });
  }
  bool loadCalibParams(std::string fileName) override {
    return ask(
        "loadCalibParams", [&] { return Base::loadCalibParams(fileName); },
        [&](auto call) { return truthOf(call(fileName)); });
  }
  bool saveConfig(std::string path) override {
    return ask(
        "saveConfig", [&] { return Base::saveConfig(path); }, [&](auto call) { return truthOf(call(path)); });
  }
  bool saveCalibParams(std::string fileName) override {
    return ask(
        "saveCalibParams", [&] { return Base::saveCalibParams(fileName); },
        [&](auto call) { return truthOf(call(fileName)); });
  }
  bool startCapture(bool useTransmit, bool useShareMemory) override {
    return ask(
        "startCapture", [&] { return Base::startCapture(useTransmit, useShareMemory); },
        [&](auto call) { return truthOf(call(useTransmit, useShareMemory)); });
  }
  bool startStereoCompute() override {
    return ask(
        "startStereoCompute", [&] { return Base::startStereoCompute(); }, [](auto call) { return truthOf(call()); });
  }
  bool stopStereoCompute() override {
    return ask(
        "stopStereoCompute", [&] { return Base::stopStereoCompute(); }, [](auto call) { return truthOf(call()); });
  }
  bool stopCapture() override {
    return ask(
        "stopCapture", [&] { return Base::stopCapture(); }, [](auto call) { return truthOf(call()); });
  }

private:
  // Pause after an override failed on a worker, so that a worker in a loop lets other threads run.
  static constexpr std::chrono::milliseconds restAfterFailure{10};

  static bool truthOf(const py::object& result) {
    const int truth = PyObject_IsTrue(result.ptr());
    if (truth < 0) {
      throw py::error_already_set();
    }
    return truth != 0;
  }
  template <typename T>
  static T number(const py::object& result) {
    return result.cast<T>();
  }
  static py::list listOf(const std::vector<cv::Mat>& matrices) {
    py::list list;
    for (const cv::Mat& matrix : matrices) {
      list.append(matrixToArray(matrix));
    }
    return list;
  }
  template <typename T>
  static void append(std::vector<T>& points, const std::vector<T>& more) {
    points.insert(points.end(), more.begin(), more.end());
  }
  // The matchers throw unless both images have one size, which would end the process.
  static void takePair(const py::sequence& values, cv::Mat& left, cv::Mat& right) {
    const Wrapped images[] = {wrapImage(values[0], "the left image of getRectStereoFrame"),
                              wrapImage(values[1], "the right image of getRectStereoFrame")};
    if (images[0].image.size() != images[1].image.size()) {
      throw py::value_error("the images of getRectStereoFrame must have the same size");
    }
    left = images[0].image.clone();
    right = images[1].image.clone();
  }
  /// False for None; otherwise passes the result's elements on.
  template <typename Take>
  static bool unlessNone(const py::object& result, const char* name, std::size_t count, const Take& take) {
    if (result.is_none()) {
      return false;
    }
    take(requireElements(result, name, count));
    return true;
  }

  /// The Python object's method, unless that is the one bound to C++. Interpreter lock held.
  py::object overrideOf(const char* name) const {
    const py::handle self = this->self();
    if (!self) {
      return {};
    }
    py::object method = py::getattr(self, name, py::none());
    if (method.is_none() || py::reinterpret_borrow<py::function>(method).is_cpp_function()) {
      return {};
    }
    return method;
  }

  /// `plain` is the C++ form; `inPython` receives a function that calls the override.
  template <typename Plain, typename InPython>
  auto ask(const char* name, const Plain& plain, const InPython& inPython) const -> decltype(plain()) {
    using Result = decltype(plain());
    bool isReported = false;
    if (Entered::isPossible()) {
      const Entered entered(this);
      py::object method;
      try {
        method = overrideOf(name);
        if (method) {
          return inPython([&](auto&&... arguments) -> py::object {
            return method(std::forward<decltype(arguments)>(arguments)...);
          });
        }
      } catch (...) {
        if (entered.isCalledFromPython()) {
          throw;
        }
        reportUnraisable(method);
        isReported = true;
      }
    }
    if constexpr (std::is_same_v<Result, bool>) {
      if (isReported) {
        std::this_thread::sleep_for(restAfterFailure);
        return false;
      }
    }
    return plain();
  }
};

}  // namespace stereo::python
