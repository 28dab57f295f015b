// SPDX-License-Identifier: Apache-2.0
#include "python/Arrays.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>

namespace stereo::python {

namespace {

// OpenCV's remap throws for more, which would end the process on a disparity worker.
constexpr py::ssize_t largestSide = std::numeric_limits<short>::max() - 1;

py::dtype typeOf(const cv::Mat& image) {
  switch (image.depth()) {
    case CV_8U:
      return py::dtype::of<std::uint8_t>();
    case CV_8S:
      return py::dtype::of<std::int8_t>();
    case CV_16U:
      return py::dtype::of<std::uint16_t>();
    case CV_16S:
      return py::dtype::of<std::int16_t>();
    case CV_32S:
      return py::dtype::of<std::int32_t>();
    case CV_32F:
      return py::dtype::of<float>();
    case CV_64F:
      return py::dtype::of<double>();
    default:
      throw py::type_error("no array has elements like this image's");
  }
}

// The base of an array: keeps `object`, which owns the array's memory, as long as the array.
template <typename T>
std::pair<T*, py::capsule> keep(T object) {
  auto owner = std::make_unique<T>(std::move(object));
  py::capsule base(owner.get(), [](void* kept) { delete static_cast<T*>(kept); });
  return {owner.release(), base};
}

std::string shapeOf(const py::array& array) { return py::cast<std::string>(py::str(py::tuple(array.attr("shape")))); }

template <typename T>
py::array requireType(py::handle object, const char* name, const char* type) {
  if (!py::isinstance<py::array>(object)) {
    throw py::type_error(std::string(name) + " must be an array of " + type + ", not " +
                         Py_TYPE(object.ptr())->tp_name);
  }
  if (!py::isinstance<py::array_t<T>>(object)) {
    throw py::type_error(std::string(name) + " must be an array of " + type + ", not of " +
                         py::cast<std::string>(py::str(object.attr("dtype"))));
  }
  return py::reinterpret_borrow<py::array>(object);
}

[[noreturn]] void refuseShape(const py::array& array, const char* name, const std::string& wanted) {
  throw py::value_error(std::string(name) + " must have the shape " + wanted + ", not " + shapeOf(array));
}

void requireSides(const py::array& array, const char* name) {
  if (array.shape(0) > largestSide || array.shape(1) > largestSide) {
    throw py::value_error(std::string(name) + " is larger than " + std::to_string(largestSide) +
                          " pixels on a side: " + shapeOf(array));
  }
}

// The array itself if its memory layout is a matrix's, otherwise a copy.
Wrapped wrap(const py::array& array, int type) {
  constexpr int asMatrix = py::array::c_style | +py::detail::npy_api::NPY_ARRAY_ALIGNED_;
  Wrapped wrapped{py::array::ensure(array, asMatrix), {}};
  if (!wrapped.array) {
    throw py::error_already_set();
  }
  const bool isRow = wrapped.array.ndim() == 1;
  const auto rows = static_cast<int>(isRow ? 1 : wrapped.array.shape(0));
  const auto columns = static_cast<int>(wrapped.array.shape(isRow ? 0 : 1));
  // Only read, unless the caller checked that it is writable.
  wrapped.image = cv::Mat(rows, columns, type, const_cast<void*>(wrapped.array.data()));
  return wrapped;
}

py::array requireImage(py::handle object, const char* name) {
  py::array array = requireType<std::uint8_t>(object, name, "uint8");
  if (array.ndim() != 3 || array.shape(2) != 3 || array.size() == 0) {
    refuseShape(array, name, "(rows, columns, 3)");
  }
  requireSides(array, name);
  return array;
}

Wrapped wrapPlane(const py::array& array, const char* name, int type) {
  if (array.ndim() != 2) {
    refuseShape(array, name, "(rows, columns)");
  }
  requireSides(array, name);
  return wrap(array, type);
}

}  // namespace

py::array toArray(cv::Mat image) {
  const py::dtype type = typeOf(image);
  std::vector<py::ssize_t> shape{image.rows, image.cols};
  std::vector<py::ssize_t> strides{static_cast<py::ssize_t>(image.step[0]), static_cast<py::ssize_t>(image.elemSize())};
  if (image.channels() > 1) {
    shape.push_back(image.channels());
    strides.push_back(static_cast<py::ssize_t>(image.elemSize1()));
  }
  if (image.empty()) {
    return py::array(type, shape);
  }
  const auto [owner, base] = keep(std::move(image));
  return py::array(type, shape, strides, owner->data, base);
}

py::array copyToArray(const cv::Mat& image) { return toArray(image.clone()); }

py::array matrixToArray(const cv::Mat& matrix) {
  return matrix.empty() ? py::array(py::dtype::of<double>(), std::vector<py::ssize_t>{0, 0}) : copyToArray(matrix);
}

py::array toArray(std::vector<cv::Vec3f> points) {
  const auto count = static_cast<py::ssize_t>(points.size());
  const auto [owner, base] = keep(std::move(points));
  return py::array_t<float>({count, py::ssize_t{3}}, reinterpret_cast<const float*>(owner->data()), base);
}

CloudArrays toArrays(std::vector<PCL> points) {
  const auto count = static_cast<py::ssize_t>(points.size());
  const auto [owner, base] = keep(std::move(points));
  const std::vector<py::ssize_t> shape{count, 3};
  if (count == 0) {
    return {py::array(py::dtype::of<float>(), shape), py::array(py::dtype::of<std::uint8_t>(), shape)};
  }
  constexpr auto step = static_cast<py::ssize_t>(sizeof(PCL));
  const std::vector<py::ssize_t> pointStrides{step, sizeof(float)};
  const std::vector<py::ssize_t> colorStrides{step, sizeof(std::uint8_t)};
  return {py::array(py::dtype::of<float>(), shape, pointStrides, owner->front().point.val, base),
          py::array(py::dtype::of<std::uint8_t>(), shape, colorStrides, owner->front().color.val, base)};
}

WidePointArrays toArrays(std::vector<WidePoint> points) {
  const auto count = static_cast<py::ssize_t>(points.size());
  const auto [owner, base] = keep(std::move(points));
  const std::vector<py::ssize_t> triples{count, 3};
  if (count == 0) {
    return {py::array(py::dtype::of<float>(), triples), py::array(py::dtype::of<std::uint8_t>(), triples),
            py::array(py::dtype::of<std::uint8_t>(), std::vector<py::ssize_t>{0})};
  }
  constexpr auto step = static_cast<py::ssize_t>(sizeof(WidePoint));
  const WidePoint& first = owner->front();
  return {py::array(py::dtype::of<float>(), triples, {step, py::ssize_t{sizeof(float)}}, first.point.val, base),
          py::array(py::dtype::of<std::uint8_t>(), triples, {step, py::ssize_t{1}}, first.color.val, base),
          py::array(py::dtype::of<std::uint8_t>(), {count}, {step}, &first.confidence, base)};
}

Wrapped wrapImage(py::handle object, const char* name) { return wrap(requireImage(object, name), CV_8UC3); }

Wrapped wrapWritableImage(py::handle object, const char* name) {
  const py::array array = requireImage(object, name);
  if (!array.writeable() || (array.flags() & py::array::c_style) == 0) {
    throw py::value_error(std::string(name) + " is changed in place: it must be writable and C-contiguous");
  }
  return wrap(array, CV_8UC3);
}

Wrapped wrapDisparity(py::handle object, const char* name) {
  return wrapPlane(requireType<float>(object, name, "float32"), name, CV_32FC1);
}

Wrapped wrapMask(py::handle object, const char* name) {
  return wrapPlane(requireType<std::uint8_t>(object, name, "uint8"), name, CV_8UC1);
}

Wrapped wrapMatrix(py::handle object, const char* name, int rows, int columns) {
  const py::array array = requireType<double>(object, name, "float64");
  const py::ssize_t axes = array.ndim();
  if (axes < 1 || axes > 2 || (axes == 1 ? 1 : array.shape(0)) < rows || array.shape(axes - 1) < columns) {
    refuseShape(array, name, "(" + std::to_string(rows) + ", " + std::to_string(columns) + ")");
  }
  if (array.size() > largestSide) {
    refuseShape(array, name, "(" + std::to_string(rows) + ", " + std::to_string(columns) + ")");
  }
  return wrap(array, CV_64FC1);
}

cv::Size toSize(py::handle object, const char* name) {
  if (!py::isinstance<py::sequence>(object) || py::isinstance<py::str>(object)) {
    throw py::type_error(std::string(name) + " must be (width, height), not " + Py_TYPE(object.ptr())->tp_name);
  }
  const auto numbers = py::reinterpret_borrow<py::sequence>(object);
  if (numbers.size() != 2) {
    throw py::value_error(std::string(name) + " must be (width, height), not " + std::to_string(numbers.size()) +
                          " numbers");
  }
  int sides[2] = {0, 0};
  for (std::size_t i = 0; i < 2; ++i) {
    const py::object number = numbers[i];
    const py::object whole = py::reinterpret_steal<py::object>(PyNumber_Index(number.ptr()));
    if (!whole) {
      throw py::error_already_set();
    }
    const long long value = PyLong_AsLongLong(whole.ptr());
    if ((value == -1 && PyErr_Occurred() != nullptr) || value < std::numeric_limits<int>::min() ||
        value > std::numeric_limits<int>::max()) {
      PyErr_Clear();
      throw py::value_error(std::string(name) + " is out of range: " + py::cast<std::string>(py::str(whole)));
    }
    sides[i] = static_cast<int>(value);
  }
  return {sides[0], sides[1]};
}

py::tuple fromSize(const cv::Size& size) { return py::make_tuple(size.width, size.height); }

std::vector<cv::Mat> toCalibration(py::handle params) {
  struct Kind {
    const char* name;
    int rows;
    int columns;
  };
  static constexpr Kind kinds[] = {{"the intrinsic matrix", 3, 3},
                                   {"the distortion", 1, 4},
                                   {"xi", 1, 1},
                                   {"the rotation", 3, 3},
                                   {"the translation", 1, 1}};
  if (!py::isinstance<py::sequence>(params) || py::isinstance<py::str>(params)) {
    throw py::type_error(std::string("the calibration must be a sequence of arrays, not ") +
                         Py_TYPE(params.ptr())->tp_name);
  }
  const auto arrays = py::reinterpret_borrow<py::sequence>(params);
  std::vector<cv::Mat> matrices;
  for (std::size_t i = 0; i < std::size(kinds) && i < arrays.size(); ++i) {
    const py::object array = arrays[i];
    const Wrapped wrapped = wrapMatrix(array, kinds[i].name, kinds[i].rows, kinds[i].columns);
    if (i == 4 && wrapped.image.total() != 3) {
      refuseShape(wrapped.array, kinds[i].name, "(3,), (3, 1) or (1, 3)");
    }
    matrices.push_back(wrapped.image.clone());
  }
  return matrices;
}

}  // namespace stereo::python
