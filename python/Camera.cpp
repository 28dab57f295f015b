// SPDX-License-Identifier: Apache-2.0
#include "python/Camera.hpp"

#include <condition_variable>
#include <iostream>
#include <set>
#include <system_error>
#include <vector>

#include <opencv2/videoio.hpp>

#include "python/Members.hpp"

namespace stereo::python {

namespace {

// All cameras, and how many are being retired. Never destroyed, since threads may outlast static objects.
struct Cameras {
  std::mutex mutex;  // a leaf
  std::condition_variable retired;
  std::set<Companion*> alive;
  int retiring = 0;
};

Cameras& cameras() {
  static auto* const instance = new Cameras;
  return *instance;
}

void retire(StereoCamera* camera) {
  camera->*(&Members::m_isOpened) = false;
  cv::VideoCapture* const device = camera->*(&Members::m_videoCapture);
  if (device != nullptr && typeid(*device) != typeid(cv::VideoCapture)) {
    // Ends the read of a custom source; OpenCV's own must not be released during a read.
    device->release();
  }
  // Not virtual calls, since the Python object is gone.
  camera->StereoCamera::stopStereoCompute();
  camera->StereoCamera::stopCapture();
  delete camera;
  const std::lock_guard lock(cameras().mutex);
  --cameras().retiring;
  cameras().retired.notify_all();
}

}  // namespace

Companion::Companion() {
  const std::lock_guard lock(cameras().mutex);
  cameras().alive.insert(this);
}

Companion::~Companion() {
  const std::lock_guard lock(cameras().mutex);
  cameras().alive.erase(this);
}

Companion& Companion::of(StereoCamera& camera) { return dynamic_cast<Companion&>(camera); }

void Retire::operator()(StereoCamera* camera) const noexcept {
  {
    const std::lock_guard lock(cameras().mutex);
    ++cameras().retiring;
  }
  if (!isWorkerThread()) {
    const Released released;
    retire(camera);
    return;
  }
  try {
    std::thread([camera] { retire(camera); }).detach();
  } catch (const std::system_error& error) {
    // The camera stays with its workers, which is better than a worker that waits for itself.
    std::cerr << "stereo_camera: cannot start a thread to end a camera: " << error.what() << std::endl;
    const std::lock_guard lock(cameras().mutex);
    --cameras().retiring;
  }
}

py::handle selfOf(const void* camera, const std::type_info& type) {
  const py::handle self = py::detail::get_object_handle(camera, py::detail::get_type_info(type));
  // An object being destroyed has no references left; taking one would destroy it twice.
  return self && Py_REFCNT(self.ptr()) > 0 ? self : py::handle();
}

void stopAllCameras() {
  std::vector<py::object> alive;
  {
    // Nothing here releases the interpreter lock, so meanwhile no camera goes away except those without an object.
    const std::lock_guard lock(cameras().mutex);
    for (const Companion* camera : cameras().alive) {
      if (const py::handle self = camera->self()) {
        alive.push_back(py::reinterpret_borrow<py::object>(self));
      }
    }
  }
  for (const py::object& self : alive) {
    auto& camera = self.cast<StereoCamera&>();
    oneAtATime(camera, "stopCapture", [&] {
      camera.StereoCamera::stopStereoCompute();
      camera.StereoCamera::stopCapture();
    });
  }
  const Released released;
  std::unique_lock lock(cameras().mutex);
  cameras().retired.wait(lock, [] { return cameras().retiring == 0; });
}

}  // namespace stereo::python
