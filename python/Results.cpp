// SPDX-License-Identifier: Apache-2.0
#include "python/Results.hpp"

#include <cstdint>
#include <string>
#include <utility>

namespace stereo::python {

namespace {

// The module's named tuples. Never freed, since the interpreter may be gone when static objects are destroyed.
struct Types {
  py::object rawFrame;
  py::object stereoFrame;
  py::object rectStereoFrame;
  py::object rectViewFrame;
  py::object depthFrame;
  py::object pointCloud;
  py::object coloredPointCloud;
  py::object timeFrame;
  py::object wideDepthImage;
  py::object widePoints;
  py::object truth;
};

Types& types() {
  static auto* const instance = new Types;
  return *instance;
}

py::object makeType(py::module_& module, const char* name, const char* fields, const char* doc) {
  py::object type =
      py::module_::import("collections").attr("namedtuple")(name, fields, py::arg("module") = module.attr("__name__"));
  type.attr("__doc__") = doc;
  module.attr(name) = type;
  return type;
}

template <typename T>
py::array_t<T, py::array::c_style> requireRows(py::handle object, const char* what, const char* type) {
  if (!py::isinstance<py::array_t<T>>(object)) {
    throw py::type_error(std::string(what) + " must return an array of " + type);
  }
  auto array = py::array_t<T, py::array::c_style>::ensure(object);
  if (!array) {
    throw py::error_already_set();
  }
  if (array.ndim() != 2 || array.shape(1) != 3) {
    throw py::value_error(std::string(what) + " must return arrays of the shape (N, 3)");
  }
  return array;
}

}  // namespace

void bindResults(py::module_& module) {
  types().rawFrame = makeType(module, "RawFrame", "frame timestamp",
                              "Both eyes side by side (rows, columns, 3; uint8, BGR) and the time of capture in "
                              "microseconds since the epoch.");
  types().stereoFrame = makeType(module, "StereoFrame", "left right timestamp",
                                 "Left and right eye (rows, columns, 3; uint8, BGR) and the time of capture in "
                                 "microseconds since the epoch.");
  types().rectStereoFrame =
      makeType(module, "RectStereoFrame", "left right",
               "Left and right eye in the perspective view (rows, columns, 3; uint8, BGR), of the rectified size.");
  types().rectViewFrame = makeType(
      module, "RectViewFrame", "left right view timestamp",
      "The pair that depth is computed from and the left eye in the perspective view (rows, columns, 3; uint8, "
      "BGR), and the time of capture in microseconds since the epoch.");
  types().depthFrame = makeType(module, "DepthFrame", "depth timestamp",
                                "Depth as a picture (rows, columns, 3; uint8, BGR), near blue, far red, rotated by 180 "
                                "degrees, and the time of the newest raw frame in microseconds since the epoch.");
  types().pointCloud =
      makeType(module, "PointCloud", "points timestamp",
               "Points (N, 3; float32): X, Y, Z in meters in the left rectified camera's frame, and the "
               "time of the newest raw frame in microseconds since the epoch.");
  types().coloredPointCloud = makeType(
      module, "ColoredPointCloud", "points colors timestamp",
      "Points (N, 3; float32, meters), their colors (N, 3; uint8: blue, green, red) and the time of the newest "
      "raw frame in microseconds since the epoch.");
  types().timeFrame = makeType(module, "TimeFrame", "first second timestamp",
                               "Two images that belong together and their time in microseconds since the epoch.");
  types().wideDepthImage = makeType(
      module, "WideDepthImage", "range state confidence view",
      "What a pair of frames gave, four arrays of the view's size: range along each pixel's ray (float32, meters, 0 "
      "where not measured), state (uint8, see WideDepth), confidence (uint8, 255 is best, 0 where not measured) and "
      "the left eye in the same geometry (rows, columns, 3; uint8, BGR).");
  types().widePoints = makeType(module, "WidePoints", "points colors confidence",
                                "Measured points (N, 3; float32, meters, left rectified frame), their colors (N, 3; "
                                "uint8: blue, green, red) and confidence (N; uint8, 255 is best).");
  types().truth = makeType(
      module, "Truth", "depth distance disparity surface occluded seen",
      "Exact values for each pixel of the left rectified view; six arrays of its size: depth z "
      "and distance along the ray (float64, meters), disparity (float64, pixels), surface (int32: a number for each "
      "face of the scene), occluded and seen (uint8: 255 where something hides the point from the right eye, and where "
      "both eyes see it).");
}

py::object rawFrame(cv::Mat frame, Stamp timestamp) {
  return types().rawFrame(toArray(std::move(frame)), timestamp.count());
}

py::object stereoFrame(cv::Mat left, cv::Mat right, Stamp timestamp) {
  return types().stereoFrame(toArray(std::move(left)), toArray(std::move(right)), timestamp.count());
}

py::object rectStereoFrame(cv::Mat left, cv::Mat right) {
  return types().rectStereoFrame(toArray(std::move(left)), toArray(std::move(right)));
}

py::object rectViewFrame(cv::Mat left, cv::Mat right, cv::Mat view, Stamp timestamp) {
  return types().rectViewFrame(toArray(std::move(left)), toArray(std::move(right)), toArray(std::move(view)),
                               timestamp.count());
}

py::object depthFrame(cv::Mat depth, Stamp timestamp) {
  return types().depthFrame(toArray(std::move(depth)), timestamp.count());
}

py::object pointCloud(std::vector<cv::Vec3f> points, Stamp timestamp) {
  return types().pointCloud(toArray(std::move(points)), timestamp.count());
}

py::object coloredPointCloud(std::vector<PCL> points, Stamp timestamp) {
  const CloudArrays arrays = toArrays(std::move(points));
  return types().coloredPointCloud(arrays.points, arrays.colors, timestamp.count());
}

py::object timeFrame(StereoCamera::TimeFrame frame) {
  if (frame.first.empty() && frame.second.empty()) {
    return py::none();
  }
  return types().timeFrame(toArray(std::move(frame.first)), toArray(std::move(frame.second)), frame.timestamp.count());
}

py::object wideDepthImage(WideDepthImage image) {
  return types().wideDepthImage(toArray(std::move(image.range)), toArray(std::move(image.state)),
                                toArray(std::move(image.confidence)), toArray(std::move(image.view)));
}

py::object widePoints(std::vector<WidePoint> points) {
  const WidePointArrays arrays = toArrays(std::move(points));
  return types().widePoints(arrays.points, arrays.colors, arrays.confidence);
}

py::object truth(const std::vector<cv::Mat>& images) {
  py::tuple arrays(images.size());
  for (std::size_t i = 0; i < images.size(); ++i) {
    arrays[i] = toArray(images[i]);
  }
  return types().truth(*arrays);
}

py::sequence requireElements(py::handle result, const char* what, std::size_t count) {
  const std::string wanted = std::string(what) + " must return None or " + std::to_string(count) + " values";
  if (!py::isinstance<py::sequence>(result) || py::isinstance<py::array>(result)) {
    throw py::type_error(wanted + ", not " + Py_TYPE(result.ptr())->tp_name);
  }
  auto elements = py::reinterpret_borrow<py::sequence>(result);
  if (elements.size() != count) {
    throw py::value_error(wanted + ", not " + std::to_string(elements.size()));
  }
  return elements;
}

Stamp toTimestamp(py::handle microseconds, const char* what) {
  const auto number = py::reinterpret_steal<py::object>(PyNumber_Index(microseconds.ptr()));
  if (!number) {
    PyErr_Clear();
    throw py::type_error(std::string(what) + ": a timestamp is an integer number of microseconds, not " +
                         Py_TYPE(microseconds.ptr())->tp_name);
  }
  return Stamp(py::cast<std::int64_t>(number));
}

std::vector<cv::Vec3f> toPoints(py::handle points, const char* what) {
  const auto array = requireRows<float>(points, what, "float32");
  const auto* const first = reinterpret_cast<const cv::Vec3f*>(array.data());
  return {first, first + array.shape(0)};
}

std::vector<PCL> toPoints(py::handle points, py::handle colors, const char* what) {
  const auto pointArray = requireRows<float>(points, what, "float32 points");
  const auto colorArray = requireRows<std::uint8_t>(colors, what, "uint8 colors");
  if (pointArray.shape(0) != colorArray.shape(0)) {
    throw py::value_error(std::string(what) + " must return as many colors as points");
  }
  const auto* const point = reinterpret_cast<const cv::Vec3f*>(pointArray.data());
  const auto* const color = reinterpret_cast<const cv::Vec3b*>(colorArray.data());
  std::vector<PCL> cloud(static_cast<std::size_t>(pointArray.shape(0)));
  for (std::size_t i = 0; i < cloud.size(); ++i) {
    cloud[i] = {point[i], color[i]};
  }
  return cloud;
}

std::vector<WidePoint> toWidePoints(py::handle points) {
  const py::sequence elements = requireElements(points, "points", 3);
  const std::vector<PCL> colored = toPoints(elements[0], elements[1], "points");
  const auto confidence = py::array_t<std::uint8_t, py::array::c_style>::ensure(elements[2]);
  if (!confidence || confidence.ndim() != 1 || static_cast<std::size_t>(confidence.shape(0)) != colored.size()) {
    throw py::value_error("points must have as many values of confidence, uint8, as points");
  }
  std::vector<WidePoint> result;
  result.reserve(colored.size());
  for (std::size_t i = 0; i < colored.size(); ++i) {
    result.push_back({colored[i].point, colored[i].color, confidence.at(static_cast<py::ssize_t>(i))});
  }
  return result;
}

}  // namespace stereo::python
