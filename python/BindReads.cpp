// SPDX-License-Identifier: Apache-2.0
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

Next frame, both eyes joined side by side: RawFrame(frame, timestamp), rows x columns x 3, uint8, black outside the
image circles. Waits for it. None if there is none (any more).

As with every read that waits: TimeoutError if nothing came within `timeout` seconds; signals end it, so Ctrl-C does.
Without a timeout, RuntimeError at once where nobody can answer: the camera is not open, or was not started, and frames
were not published by setting m_rawFrame (clouds: no disparity worker, and m_disparityFrame).)")
      .def("getStereoFrame", &getStereoFrame, py::arg("timeout") = py::none(), R"(getStereoFrame(self, timeout=None)
--

Next frame's eyes: StereoFrame(left, right, timestamp), each rows x columns x 3, uint8. Waits for it. None if there is
none (any more). The disparity worker and the rectified reads call it: an override is their source.)")
      .def("getRectStereoFrame", &getRectStereoFrame, py::arg("view") = false, py::arg("timeout") = py::none(),
           R"(getRectStereoFrame(self, view=False, timeout=None)
--

Next frame's eyes, rectified, each rows x columns x 3, uint8, of the rectified size. Waits for it. None if there is
none (any more). Raises Error while there are no maps.

Without `view`, both in the perspective view: RectStereoFrame(left, right). With it, the pair that depth is computed
from (m_depthmode 1: longitude-latitude, 2: perspective) and the left eye in the perspective view:
RectViewFrame(left, right, view, timestamp). The disparity worker calls it with view=True.)")
      .def("getDepthFrame", &getDepthFrame, py::arg("disparity") = py::none(), py::arg("color") = true,
           py::arg("timeout") = py::none(),
           R"(getDepthFrame(self, disparity=None, color=True, timeout=None)
--

Without a disparity, the next raw frame's depth as a picture: DepthFrame(depth, timestamp), rows x columns x 3, uint8,
turned by 180 degrees, near blue and far red, black where there is no depth within limits; `color` is ignored. Waits
for the frame. None at once without a disparity worker, and while there is no disparity yet.

With a disparity (rows x columns, float32, pixels of the rectified eye), its depth: rows x columns, float32, metres; -1
where the disparity is not above the near limit's number, 0 where the depth is out of limits. With m_depthmode 2 that
is f * b / d, with focal length f in pixels and baseline b in metres; with 1, on longitude-latitude pictures,
b * sin(pi * ((column - d) / W + o)) / sin(pi * d / W), o = (180 - m_lonLatFov) / 360. Does not wait, whatever the
timeout.)")
      .def("getPointCloud", &getPointCloud, py::arg("colored") = false, py::arg("timeout") = py::none(),
           R"(getPointCloud(self, colored=False, timeout=None)
--

Points of the next disparity: PointCloud(points, timestamp), N x 3, float32, metres in the left rectified camera's
frame (x right, y down, z forward). With `colored`, ColoredPointCloud(points, colors, timestamp), the colours N x 3,
uint8: blue, green, red. Waits for the disparity. None if there are no points (any more).)");
}

}  // namespace stereo::python
