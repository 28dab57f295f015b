// SPDX-License-Identifier: Apache-2.0
#include "python/Source.hpp"

#include <chrono>
#include <utility>

#include "python/Camera.hpp"
#include "python/Members.hpp"

namespace stereo::python {

namespace {

constexpr std::chrono::milliseconds restAfterFailure{10};

// Calls the object on behalf of the camera. Exceptions go to Python, if that is who called the camera, and otherwise to
// the hook for those that nobody catches; `failure` is the answer then.
template <typename Result, typename Call>
Result ask(const StereoCamera* camera, const py::object& source, Result failure, const Call& call) {
  if (!Entered::isPossible()) {
    return failure;
  }
  const Entered entered(camera);
  try {
    return call();
  } catch (...) {
    if (entered.isCalledFromPython()) {
      throw;
    }
    reportUnraisable(source);
  }
  return failure;
}

}  // namespace

SourceAdapter::SourceAdapter(py::object source) : m_source(std::move(source)) {
  if (!py::isinstance<PythonSource>(m_source)) {
    throw py::type_error(std::string("a frame source is derived from stereo_camera.VideoCapture; this is ") +
                         Py_TYPE(m_source.ptr())->tp_name);
  }
}

SourceAdapter::~SourceAdapter() {
  if (Entered::isPossible()) {
    const Entered entered(m_camera);
    m_source = py::object();
  } else {
    m_source.release();  // the interpreter takes it along
  }
}

bool SourceAdapter::readFrame(cv::OutputArray image) {
  const Entered entered(m_camera);
  try {
    const py::object frame = m_source.attr("read")();
    if (frame.is_none()) {
      return false;
    }
    const Wrapped wrapped = wrapImage(frame, "the frame");
    const py::gil_scoped_release released;
    wrapped.image.copyTo(image);
    return true;
  } catch (...) {
    reportUnraisable(m_source);
  }
  return false;
}

bool SourceAdapter::read(cv::OutputArray image) {
  if (Entered::isPossible() && readFrame(image)) {
    return true;
  }
  image.release();
  std::unique_lock lock(m_mutex);
  m_released.wait_for(lock, restAfterFailure, [this] { return m_isReleased; });
  return false;
}

bool SourceAdapter::set(int propId, double value) {
  return ask(m_camera, m_source, false, [&] { return m_source.attr("set")(propId, value).cast<bool>(); });
}

double SourceAdapter::get(int propId) const {
  return ask(m_camera, m_source, 0.0, [&] { return m_source.attr("get")(propId).cast<double>(); });
}

bool SourceAdapter::isOpened() const {
  return ask(m_camera, m_source, false, [&] { return m_source.attr("isOpened")().cast<bool>(); });
}

void SourceAdapter::release() {
  {
    const std::lock_guard lock(m_mutex);
    m_isReleased = true;
  }
  m_released.notify_all();
  if (!Entered::isPossible()) {
    return;
  }
  const Entered entered(m_camera);
  try {
    m_source.attr("release")();
  } catch (...) {
    reportUnraisable(m_source);  // never to the caller: a stop goes on
  }
}

void installSource(StereoCamera& camera, const py::object& source) {
  auto adapter = std::make_unique<SourceAdapter>(source);
  adapter->attach(&camera);
  oneAtATime(camera, "setVideoCapture", [&] {
    if (camera.*(&Members::m_captureThread) != nullptr) {
      throw std::runtime_error("the capture worker runs: a frame source is set before startCapture");
    }
    cv::VideoCapture*& device = camera.*(&Members::m_videoCapture);
    delete device;
    device = adapter.release();
    camera.*(&Members::m_isOpened) = true;
  });
}

py::object sourceOf(StereoCamera& camera) {
  const auto* const adapter = dynamic_cast<const SourceAdapter*>(camera.*(&Members::m_videoCapture));
  return adapter != nullptr ? adapter->source() : py::none();
}

void bindSource(py::module_& module) {
  py::class_<PythonSource>(module, "VideoCapture",
                           R"(A frame source to derive from; installed by `StereoCamera.setVideoCapture`.

Override `read`; the rest as needed. The camera holds a reference to the source, and calls it from its capture worker
(`read`), from a stop (`release`) and from the thread that sets size and rate (`set`).)")
      .def(py::init<>(), "__init__(self)\n--\n\nAn open source.")
      .def(
          "read",
          [](const py::object& self) -> py::object {
            PyErr_SetString(PyExc_NotImplementedError,
                            (std::string(Py_TYPE(self.ptr())->tp_name) + " has no read()").c_str());
            throw py::error_already_set();
          },
          R"(read(self)
--

The next frame: rows x columns x 3, uint8, BGR, both eyes side by side; it is copied. None: there is none just now.

To be overridden. Called over and over by the capture worker, without a pause but for 10 ms after a None or an
exception, so it sets the pace: wait for the frame in here. Exceptions are reported by `sys.unraisablehook`, and count
as None. Once `release` was called it has to return, otherwise a stop waits for ever.)")
      .def(
          "set", [](PythonSource&, int, double) { return false; }, py::arg("propId"), py::arg("value"),
          R"(set(self, propId, value)
--

Asks for a property by OpenCV's number (3: width, 4: height of the whole frame in pixels, 5: frames per second). Whether
it was taken, which the camera does not look at. By default nothing is.)")
      .def(
          "get", [](PythonSource&, int) { return 0.0; }, py::arg("propId"),
          "get(self, propId)\n--\n\nA property by OpenCV's number; 0 by default.")
      .def("isOpened", &PythonSource::isOpened, "isOpened(self)\n--\n\nWhether `release` was not called yet.")
      .def("release", &PythonSource::release, R"(release(self)
--

No more frames are wanted. Called from the thread that stops the camera, while another may be inside `read`: an override
makes that return.)");
}

}  // namespace stereo::python
