// SPDX-License-Identifier: Apache-2.0
// Entry point of the module.
#include "python/Module.hpp"

#include <opencv2/core.hpp>

#include "python/Results.hpp"
#include "python/Source.hpp"
#include "sources/VirtualCamera.hpp"

namespace py = pybind11;
using namespace stereo::python;

PYBIND11_MODULE(stereo_camera, module) {
  // The first line of each docstring is the signature, in the form that `inspect` and `help` parse.
  py::options options;
  options.disable_function_signatures();

  module.doc() = R"(Driver of a stereo fisheye camera whose two eyes arrive side by side in one video frame.

Images are arrays of rows x columns x 3, uint8, blue-green-red; timestamps are integer microseconds since the epoch
(1970-01-01 UTC); sizes are (width, height) in pixels. Operations without a result return None. Results belong to the
caller and outlive the camera.

Every call releases the interpreter lock while it works or waits.)";

  auto& error = py::register_exception<cv::Exception>(module, "Error", PyExc_RuntimeError);
  error.attr("__doc__") = "An error of OpenCV, with its text. (The C++ library throws cv::Exception.)";
  module.attr("__version__") = STEREO_CAMERA_VERSION;
  module.attr("NO_DEVICE") = static_cast<int>(stereo::model::noDevice);

  bindResults(module);
  bindSource(module);
  CameraClass camera = bindCamera(module);
  bindReads(camera);
  bindMembers(module, camera);
  bindVirtualCamera(module);
  bindSimulation(module);
  bindWideDepth(module);
  bindFunctions(module);

  // Workers must not request the lock of an interpreter that is ending.
  py::module_::import("atexit").attr("register")(py::cpp_function(&stopAllCameras, "Stops all cameras."));
}
