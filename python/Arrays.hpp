// SPDX-License-Identifier: Apache-2.0
// NumPy arrays from matrices and matrices from arrays.
#pragma once

#include <vector>

#include <pybind11/numpy.h>
#include <opencv2/core.hpp>

#include "StereoCamera.hpp"
#include "WideDepth.hpp"

namespace stereo::python {

namespace py = pybind11;

// All of these need the interpreter lock.

/// An array of rows, columns and (if more than one) channels over the image's own pixels, without a copy; the array
/// owns a header of the image. For images that nobody else writes to.
py::array toArray(cv::Mat image);
/// A deep copy, for images that the camera keeps using.
py::array copyToArray(const cv::Mat& image);
/// A deep copy of a calibration matrix, float64 even if it is empty.
py::array matrixToArray(const cv::Mat& matrix);
/// N x 3, float32, over the cloud's own memory.
py::array toArray(std::vector<cv::Vec3f> points);

/// A colored cloud as two strided arrays over its own memory.
struct CloudArrays {
  py::array points;  ///< N x 3, float32
  py::array colors;  ///< N x 3, uint8
};
CloudArrays toArrays(std::vector<PCL> points);

/// Points of wide depth as strided arrays over their own memory.
struct WidePointArrays {
  py::array points;      ///< N x 3, float32
  py::array colors;      ///< N x 3, uint8
  py::array confidence;  ///< N, uint8
};
WidePointArrays toArrays(std::vector<WidePoint> points);

/// An array and a matrix over its pixels, valid as long as this lives. `array` is the caller's own if that is
/// contiguous, otherwise a copy.
struct Wrapped {
  py::array array;
  cv::Mat image;
};

/// `name` is the array's name in messages. A wrong type raises TypeError, a wrong shape ValueError.
Wrapped wrapImage(py::handle object, const char* name);      ///< rows x columns x 3, uint8: CV_8UC3, not empty
Wrapped wrapDisparity(py::handle object, const char* name);  ///< rows x columns, float32: CV_32FC1
Wrapped wrapMask(py::handle object, const char* name);       ///< rows x columns, uint8: CV_8UC1
/// float64 with one or two axes, at least `rows` x `columns`: CV_64FC1. A single axis is one row.
Wrapped wrapMatrix(py::handle object, const char* name, int rows, int columns);
/// As `wrapImage`, for an array to change in place. ValueError unless it is contiguous and writable.
Wrapped wrapWritableImage(py::handle object, const char* name);

/// (width, height) in pixels. TypeError or ValueError, with `name`, for anything but two whole numbers.
cv::Size toSize(py::handle object, const char* name);
py::tuple fromSize(const cv::Size& size);

/// Deep copies of the five matrices {K, D, xi, R, translation}; further ones are ignored. Fewer are accepted, since the
/// camera refuses them itself.
std::vector<cv::Mat> toCalibration(py::handle params);

}  // namespace stereo::python
