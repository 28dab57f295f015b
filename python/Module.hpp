// SPDX-License-Identifier: Apache-2.0
// The parts that the module is made of.
#pragma once

#include <memory>

#include <pybind11/pybind11.h>

#include "python/Camera.hpp"

namespace stereo::python {

/// How Python holds a camera; see `Retire`.
template <typename Camera>
using Owner = std::unique_ptr<Camera, Retire>;

using CameraClass = py::class_<StereoCamera, Owner<StereoCamera>>;

// The parts of the module, a file each.
void bindFunctions(py::module_& module);
void bindMembers(py::module_& module, CameraClass& camera);
/// The class with constructors, setters, getters, files, starting and stopping.
CameraClass bindCamera(py::module_& module);
void bindReads(CameraClass& camera);
void bindVirtualCamera(py::module_& module);
void bindSimulation(py::module_& module);
void bindWideDepth(py::module_& module);

}  // namespace stereo::python
