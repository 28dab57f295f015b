// SPDX-License-Identifier: Apache-2.0
// The named tuples that reads return.
#pragma once

#include <chrono>
#include <vector>

#include "python/Arrays.hpp"

namespace stereo::python {

// The camera's outputs in Python are named tuples. All of these need the interpreter lock.

/// Makes the named tuples, as attributes of the module.
void bindResults(py::module_& module);

using Stamp = std::chrono::microseconds;

py::object rawFrame(cv::Mat frame, Stamp timestamp);
py::object stereoFrame(cv::Mat left, cv::Mat right, Stamp timestamp);
py::object rectStereoFrame(cv::Mat left, cv::Mat right);
py::object rectViewFrame(cv::Mat left, cv::Mat right, cv::Mat view, Stamp timestamp);
py::object depthFrame(cv::Mat depth, Stamp timestamp);
py::object pointCloud(std::vector<cv::Vec3f> points, Stamp timestamp);
py::object coloredPointCloud(std::vector<PCL> points, Stamp timestamp);
/// None if there are no images. Takes over the frame's images.
py::object timeFrame(StereoCamera::TimeFrame frame);
/// Takes over the images.
py::object wideDepthImage(WideDepthImage image);
py::object widePoints(std::vector<WidePoint> points);
/// Truth of a simulated scene, in the order of `stereo::sim::Truth`.
py::object truth(const std::vector<cv::Mat>& images);

// And back, from an override's result: any sequence of that many elements, otherwise TypeError or ValueError.

/// `what` names the operation in messages.
py::sequence requireElements(py::handle result, const char* what, std::size_t count);
Stamp toTimestamp(py::handle microseconds, const char* what);
/// Points, N x 3 float32, and their colors, N x 3 uint8.
std::vector<cv::Vec3f> toPoints(py::handle points, const char* what);
std::vector<PCL> toPoints(py::handle points, py::handle colors, const char* what);
/// Points, colors and confidence, in this order.
std::vector<WidePoint> toWidePoints(py::handle points);

}  // namespace stereo::python
