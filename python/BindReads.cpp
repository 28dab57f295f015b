// SPDX-License-Identifier: Apache-2.0
// Binds the camera's reads.
#include <utility>
#include <vector>

#include "python/Arrays.hpp"
#include "python/LimitedRead.hpp"
#include "python/Module.hpp"
#include "python/Results.hpp"

namespace stereo::python {

namespace {

py::object getRawFrame(StereoCamera& camera, const py::object& timeout) {
  cv::Mat frame;
  Stamp timestamp{0};
  LimitedRead read(camera, Awaited::frame, timeout);
  return read.run([&] { return camera.StereoCamera::getRawFrame(frame, timestamp); })
             ? rawFrame(std::move(frame), timestamp)
             : py::none();
}

py::object getStereoFrame(StereoCamera& camera, const py::object& timeout) {
  cv::Mat left;
  cv::Mat right;
  Stamp timestamp{0};
  LimitedRead read(camera, Awaited::frame, timeout);
  return read.run([&] { return camera.StereoCamera::getStereoFrame(left, right, timestamp); })
             ? stereoFrame(std::move(left), std::move(right), timestamp)
             : py::none();
}

py::object getRectStereoFrame(StereoCamera& camera, bool withView, const py::object& timeout) {
  cv::Mat left;
  cv::Mat right;
  cv::Mat view;
  Stamp timestamp{0};
  LimitedRead read(camera, Awaited::frame, timeout);
  if (!read.run([&] {
        return withView ? camera.StereoCamera::getRectStereoFrame(left, right, view, timestamp)
                        : camera.StereoCamera::getRectStereoFrame(left, right);
      })) {
    return py::none();
  }
  return withView ? rectViewFrame(std::move(left), std::move(right), std::move(view), timestamp)
                  : rectStereoFrame(std::move(left), std::move(right));
}

py::object getDepthFrame(StereoCamera& camera, const py::object& disparity, bool color, const py::object& timeout) {
  cv::Mat depth;
  if (!disparity.is_none()) {
    Wrapped wrapped = wrapDisparity(disparity, "the disparity");
    {
      const Released released;
      camera.StereoCamera::getDepthFrame(wrapped.image, depth);
    }
    return toArray(std::move(depth));
  }
  Stamp timestamp{0};
  LimitedRead read(camera, Awaited::frame, timeout);
  return read.run([&] { return camera.StereoCamera::getDepthFrame(depth, color, timestamp); })
             ? depthFrame(std::move(depth), timestamp)
             : py::none();
}

py::object getPointCloud(StereoCamera& camera, bool colored, const py::object& timeout) {
  Stamp timestamp{0};
  LimitedRead read(camera, Awaited::disparity, timeout);
  if (colored) {
    std::vector<PCL> points;
    return read.run([&] { return camera.StereoCamera::getPointCloud(points, timestamp); })
               ? coloredPointCloud(std::move(points), timestamp)
               : py::none();
  }
  std::vector<cv::Vec3f> points;
  return read.run([&] { return camera.StereoCamera::getPointCloud(points, timestamp); })
             ? pointCloud(std::move(points), timestamp)
             : py::none();
}

}  // namespace

void bindReads(CameraClass& camera) {
  camera
      .def("getRawFrame", &getRawFrame, py::arg("timeout") = py::none(), R"(getRawFrame(self, timeout=None)
--

Waits for the next frame, both eyes side by side: RawFrame(frame, timestamp), rows x columns x 3, uint8, black outside
the image circles. None if there is none (anymore).

Every waiting read raises TimeoutError if nothing came within `timeout` seconds, and signals such as Ctrl-C end it.
Without a timeout, it raises RuntimeError at once if no result can ever come: the camera is not open or not started, and
m_rawFrame was not set (clouds: no disparity worker, and m_disparityFrame was not set).)")
      .def("getStereoFrame", &getStereoFrame, py::arg("timeout") = py::none(), R"(getStereoFrame(self, timeout=None)
--

Waits for the eyes of the next frame: StereoFrame(left, right, timestamp), each rows x columns x 3, uint8. None if there
is none (anymore). The disparity worker and the rectified reads call it, so an override feeds them.)")
      .def("getRectStereoFrame", &getRectStereoFrame, py::arg("view") = false, py::arg("timeout") = py::none(),
           R"(getRectStereoFrame(self, view=False, timeout=None)
--

Waits for the rectified eyes of the next frame, each rows x columns x 3, uint8, of the rectified size. None if there is
none (anymore). Raises Error while there are no maps.

Without `view`, both in the perspective view: RectStereoFrame(left, right). With it, the pair that depth is computed
from (m_depthmode 1: longitude-latitude, 2: perspective) and the left eye in the perspective view:
RectViewFrame(left, right, view, timestamp). The disparity worker calls it with view=True.)")
      .def("getDepthFrame", &getDepthFrame, py::arg("disparity") = py::none(), py::arg("color") = true,
           py::arg("timeout") = py::none(),
           R"(getDepthFrame(self, disparity=None, color=True, timeout=None)
--

Without a disparity, waits for the next raw frame and returns depth as a picture: DepthFrame(depth, timestamp), rows x
columns x 3, uint8, rotated by 180 degrees, near blue and far red, black where there is no depth within limits; `color`
is ignored. Returns None at once without a disparity worker or before the first disparity.

With a disparity (rows x columns, float32, pixels of the rectified eye), its depth: rows x columns, float32, meters; -1
where the disparity is not above the near limit's number, 0 where the depth is out of limits. With m_depthmode 2 that
is f * b / d, with focal length f in pixels and baseline b in meters; with 1, on longitude-latitude pictures,
b * sin(pi * ((column - d) / W + o)) / sin(pi * d / W), o = (180 - m_lonLatFov) / 360. Does not wait and ignores the
timeout.)")
      .def("getPointCloud", &getPointCloud, py::arg("colored") = false, py::arg("timeout") = py::none(),
           R"(getPointCloud(self, colored=False, timeout=None)
--

Waits for the next disparity and returns its points: PointCloud(points, timestamp), N x 3, float32, meters in the left
rectified camera's frame (x right, y down, z forward). With `colored`, ColoredPointCloud(points, colors, timestamp), the
colors N x 3, uint8: blue, green, red. None if there are no points (anymore).)");
}

}  // namespace stereo::python
