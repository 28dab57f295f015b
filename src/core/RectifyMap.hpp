// SPDX-License-Identifier: Apache-2.0
// Lookup maps that turn a fisheye eye into another view.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// The view that a lookup map makes, numbered as in the public `initRectifyMap`.
enum ViewMode : int { unifiedModel = 0, longitudeLatitude = 1, perspective = 2 };

/// Calibration of one eye, and the camera matrix of the view; see `initRectifyMap` for shapes.
struct RectifyModel {
  cv::Mat K;
  cv::Mat D;
  cv::Mat R;
  cv::Mat P;
  double xi = 0;
  double xi2 = 0;
};

/// Throws cv::Exception unless one eye's matrices have the shapes and types that `initRectifyMap` requires.
void requireEye(const cv::Mat& K, const cv::Mat& D, const cv::Mat& R);

/// Fills `map1` (source column) and `map2` (source row), CV_32FC1 of `size`. The equations are in the implementation.
/// Throws cv::Exception for matrices of the wrong shape or type, before anything is written.
void buildRectifyMap(const RectifyModel& model, cv::Size size, int mode, cv::Mat& map1, cv::Mat& map2);

/// Lookup maps of one eye for one view, CV_32FC1 of the view's size. Copies are headers: they stay valid when other
/// maps replace these.
struct EyeMaps {
  cv::Mat columns;  ///< source column
  cv::Mat rows;     ///< source row
};

/// Writes the view of an eye into a caller's image (see `writeInto`), bilinear, black where the eye saw nothing.
void rectify(const cv::Mat& eye, const EyeMaps& maps, cv::Mat& view);

/// Camera matrix of the perspective view of `size` pixels with a horizontal field of `hFov` degrees:
/// f = (W / 2) / tan(hFov / 2), principal point (W / 2 - 0.5, H / 2 - 0.5); one f serves both axes.
cv::Mat perspectiveCameraMatrix(cv::Size size, double hFov);

/// Matrix that takes the two angles of the longitude-latitude view to its pixels. Both axes span
/// alpha = field / 222 * pi radians, centered on pi / 2: f = W / alpha, c = -W (pi - alpha) / (2 alpha), likewise with
/// H. 222 degrees is the field of the lens: with `field` = 222 the view spans pi, with 180 it spans 145.9 degrees.
cv::Mat lonLatCameraMatrix(cv::Size size, double field);

}  // namespace stereo::core
