// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <pybind11/numpy.h>
#include <opencv2/core.hpp>

#include "StereoCamera.hpp"

namespace stereo::python {

namespace py = pybind11;

// All of these are called with the interpreter lock held.

/// The image's own pixels as an array of its rows, columns and (if more than one) channels: nothing is copied, the
/// array owns a header of the image. For images that nobody else writes into.
py::array toArray(cv::Mat image);
/// A deep copy, for images that the camera keeps.
py::array copyToArray(const cv::Mat& image);
/// A deep copy of a matrix of the calibration, float64 also where it is empty.
py::array matrixToArray(const cv::Mat& matrix);
/// N x 3, float32, over the cloud's own memory.
py::array toArray(std::vector<cv::Vec3f> points);

/// A coloured cloud as two arrays over its own memory, with gaps between the rows.
struct CloudArrays {
  py::array points;  ///< N x 3, float32
  py::array colors;  ///< N x 3, uint8
};
CloudArrays toArrays(std::vector<PCL> points);

/// An array and a matrix over its pixels: valid as long as this lives. `array` is the caller's own if that was in one
/// piece, a copy otherwise.
struct Wrapped {
  py::array array;
  cv::Mat image;
};

/// `name` stands for the array in the messages. Another type than the wanted one raises TypeError, another shape
/// ValueError.
Wrapped wrapImage(py::handle object, const char* name);      ///< rows x columns x 3, uint8: CV_8UC3, not empty
Wrapped wrapDisparity(py::handle object, const char* name);  ///< rows x columns, float32: CV_32FC1
/// float64 with one or two axes, at least `rows` x `columns`: CV_64FC1. A single axis is one row.
Wrapped wrapMatrix(py::handle object, const char* name, int rows, int columns);
/// As `wrapImage`, for an array that is to be changed: has to be in one piece and writable, otherwise ValueError.
Wrapped wrapWritableImage(py::handle object, const char* name);

/// (width, height) in pixels. TypeError or ValueError, with `name`, for anything but two whole numbers.
cv::Size toSize(py::handle object, const char* name);
py::tuple fromSize(const cv::Size& size);

/// Vector of the five matrices {K, D, xi, R, translation} or more, deep copies; further ones are left out. Fewer pass,
/// since the camera refuses them itself.
std::vector<cv::Mat> toCalibration(py::handle params);

}  // namespace stereo::python
