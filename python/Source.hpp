// SPDX-License-Identifier: Apache-2.0
// Frame sources written in Python.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include <opencv2/videoio.hpp>

#include "python/Arrays.hpp"
#include "python/Interpreter.hpp"

namespace stereo::python {

/// Base class of frame sources in Python, bound as `VideoCapture`, with the defaults of operations not overridden.
class PythonSource {
public:
  PythonSource() = default;
  virtual ~PythonSource() = default;
  PythonSource(const PythonSource&) = delete;
  PythonSource& operator=(const PythonSource&) = delete;

  bool isOpened() const { return m_open; }
  void release() { m_open = false; }

private:
  std::atomic<bool> m_open{true};
};

/// A camera's device that gets its frames from a Python object. The camera owns it; it holds a reference to the object.
/// All operations may be called from any thread, without the interpreter lock.
class SourceAdapter final : public cv::VideoCapture {
public:
  /// Interpreter lock held. Raises TypeError for anything that is not derived from `VideoCapture`.
  explicit SourceAdapter(py::object source);
  ~SourceAdapter() override;
  SourceAdapter(const SourceAdapter&) = delete;
  SourceAdapter& operator=(const SourceAdapter&) = delete;

  /// Sets the camera whose worker reads; before any worker runs.
  void attach(const StereoCamera* camera) { m_camera = camera; }
  /// The Python object.
  const py::object& source() const { return m_source; }

  /// Copies a frame of the object's `read`. For None, an exception (which is reported) or anything else, empties the
  /// output and returns false after a pause, so that a worker in a loop lets other threads run.
  bool read(cv::OutputArray image) override;
  bool set(int propId, double value) override;
  double get(int propId) const override;
  bool isOpened() const override;
  /// Ends the pause of a failed read and calls the object's `release`, after which its `read` must return.
  void release() override;

private:
  bool readFrame(cv::OutputArray image);

  const StereoCamera* m_camera = nullptr;
  py::object m_source;
  std::mutex m_mutex;  // a leaf lock, guards the flag
  std::condition_variable m_released;
  bool m_isReleased = false;
};

/// Makes the object the camera's open device. Raises RuntimeError while a capture worker may read the old one.
void installSource(StereoCamera& camera, const py::object& source);
/// The Python object that is the camera's device; None if that is another one.
py::object sourceOf(StereoCamera& camera);

void bindSource(py::module_& module);

}  // namespace stereo::python
