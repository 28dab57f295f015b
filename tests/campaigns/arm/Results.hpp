// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tests/campaigns/arm/Writer.hpp"

namespace stereo::arm {

/// Matrices of one eye, in the order of `setCalibParams`: {K, D, xi, R, translation}, CV_64F.
using Calibration = std::vector<cv::Mat>;

/// Reads what `arm_frames` drew; throws std::runtime_error if the file is not whole.
std::vector<Calibration> readCalibrations(const std::string& path);

/// What the results are made with and that does not belong to the library: the C library's functions over the arguments
/// that occur, and OpenCV's inverses, products and norms. Names begin with "ingredient". Differences here are no
/// failure, but explain others.
void writeIngredients(const std::vector<Calibration>& calibrations, const Writer& out);

/// Look-up maps of all modes for these calibrations, views of many fields and both of the camera matrices.
void writeMaps(const std::vector<Calibration>& calibrations, const Writer& out);

/// Circular and elliptical masks.
void writeMasks(const Writer& out);

/// Metric and colored depth in both modes, and clouds in both forms, of disparities made up here: what a matcher
/// gives, and numbers that it never should.
void writeDepths(const Writer& out);

/// Wide depth of drawn eyes, one of them shifted, for two of the calibrations' kinds of view.
void writeWideDepths(const Writer& out);

/// Everything that the class hands out for this frame (a picture of any size, with a calibration file of the same name
/// next to it), in both depth modes and with both matchers.
void writeCamera(const std::string& picture, cv::Size rectified, const Writer& out);

}  // namespace stereo::arm
