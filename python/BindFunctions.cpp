// SPDX-License-Identifier: Apache-2.0
// Binds the free functions.
#include <stdexcept>

#include "StereoCamera.hpp"
#include "python/Arrays.hpp"
#include "python/Module.hpp"

namespace stereo::python {

namespace {

py::tuple rectifyMap(const py::object& K, const py::object& D, const py::object& R, const py::object& P, double xi,
                     double xi2, const py::object& size, int mode) {
  const Wrapped matrices[] = {wrapMatrix(K, "K", 3, 3), wrapMatrix(D, "D", 1, 4), wrapMatrix(R, "R", 3, 3),
                              wrapMatrix(P, "P", 3, 3)};
  const cv::Size pixels = toSize(size, "size");
  cv::Mat columns;
  cv::Mat rows;
  {
    const Released released;
    initRectifyMap(matrices[0].image, matrices[1].image, matrices[2].image, matrices[3].image, xi, xi2, pixels, mode,
                   columns, rows);
  }
  return py::make_tuple(toArray(columns), toArray(rows));
}

int blackOutCircle(int radius, const py::object& first, const py::object& second) {
  Wrapped images[] = {wrapWritableImage(first, "first"), wrapWritableImage(second, "second")};
  const Released released;
  return convertRawFisheyeImage(radius, images[0].image, images[1].image);
}

int blackOutEllipse(const py::object& first, const py::object& second, float dRadiusY, float dRadiusX, float dCenterX,
                    float dCenterY) {
  Wrapped images[] = {wrapWritableImage(first, "first"), wrapWritableImage(second, "second")};
  const Released released;
  return convertRawFisheyeImage(images[0].image, images[1].image, dRadiusY, dRadiusX, dCenterX, dCenterY);
}

}  // namespace

void bindFunctions(py::module_& module) {
  module.def("initRectifyMap", &rectifyMap, py::arg("K"), py::arg("D"), py::arg("R"), py::arg("P"), py::arg("xi"),
             py::arg("xi2"), py::arg("size"), py::arg("mode"),
             R"(initRectifyMap(K, D, R, P, xi, xi2, size, mode)
--

Maps (columns, rows), float32, from a view of `size` (width, height) to a fisheye eye: for each pixel of the view, its
place in the eye's image. Unified omnidirectional model: a ray (x, y, z) of unit length is projected as xu = x / (z +
xi), yu = y / (z + xi), distorted by D (k1, k2, p1, p2) and converted to pixels by K. K, R, P: (3, 3), D: (1, 4),
float64. `mode`: 0 plane unprojected with `xi2`, 1 longitude-latitude, 2 perspective; any other gives NaN. Raises
TypeError, ValueError or Error for unsuitable arguments.)");
  module.def(
      "MatRowMul",
      [](const py::object& m, double a, double b, double c, int row) {
        return MatRowMul(wrapMatrix(m, "m", 1, 3).image, a, b, c, row);
      },
      py::arg("m"), py::arg("a"), py::arg("b"), py::arg("c"), py::arg("row"), R"(MatRowMul(m, a, b, c, row)
--

Product of row `row` of a float64 matrix with the column (a, b, c). Raises Error if there is no such row.)");
  module.def("convertRawFisheyeImage", &blackOutCircle, py::arg("radius"), py::arg("first"), py::arg("second"),
             R"(convertRawFisheyeImage(*args, **kwargs)
--

Blackens, in place, in two images (rows x columns x 3, uint8, writable and contiguous) what is outside

(radius, first, second): the circle of `radius` pixels around the middle of the first;

(first, second, dRadiusY, dRadiusX, dCenterX, dCenterY): an ellipse with the semi-axes rows / 2 + dRadiusY and
columns / 2 + dRadiusX around (columns / 2 + dCenterX, rows / 2 + dCenterY), pixels.

Returns 0. Raises Error if the second is smaller than the first.)");
  module.def("convertRawFisheyeImage", &blackOutEllipse, py::arg("first"), py::arg("second"), py::arg("dRadiusY"),
             py::arg("dRadiusX"), py::arg("dCenterX"), py::arg("dCenterY"));
  module.def("getBlueSegVal", &getBlueSegVal, py::arg("lo"), py::arg("hi"), py::arg("v"),
             "getBlueSegVal(lo, hi, v)\n--\n\nBlue, 0 to 255, of a value on the scale from `lo` to `hi`.");
  module.def("getGreenSegVal", &getGreenSegVal, py::arg("lo"), py::arg("hi"), py::arg("v"),
             "getGreenSegVal(lo, hi, v)\n--\n\nGreen, 0 to 255, of a value on the scale from `lo` to `hi`.");
  module.def("getRedSegVal", &getRedSegVal, py::arg("lo"), py::arg("hi"), py::arg("v"),
             "getRedSegVal(lo, hi, v)\n--\n\nRed, 0 to 255, of a value on the scale from `lo` to `hi`.");
  module.def(
      "getclolor",
      [](float lo, float hi, float v) {
        const cv::Vec3b color = getclolor(lo, hi, v);
        return py::make_tuple(color[0], color[1], color[2]);
      },
      py::arg("lo"), py::arg("hi"), py::arg("v"),
      "getclolor(lo, hi, v)\n--\n\n(blue, green, red), 0 to 255, of a value on the scale from `lo` (blue) to `hi` "
      "(red).");
}

}  // namespace stereo::python
