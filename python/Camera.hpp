// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "StereoCamera.hpp"
#include "python/Interpreter.hpp"

namespace stereo::python {

/// What the module keeps with each camera that Python made.
class Companion {
public:
  Companion(const Companion&) = delete;
  Companion& operator=(const Companion&) = delete;

  /// The companion of a camera that Python made: all that Python can get hold of.
  static Companion& of(StereoCamera& camera);

  /// Whether a start or a stop is under way.
  bool isStartingOrStopping() const { return m_owner != std::thread::id(); }

  /// How many starts and stops have come to their end.
  std::atomic<unsigned> stops{0};
  // Whether Python has set `m_rawFrame` or `m_disparityFrame`, which publishes them.
  std::atomic<bool> publishesFrames{false};
  std::atomic<bool> publishesDisparities{false};

  /// The camera's Python object, null if there is none (any more), or it is just going away. Interpreter lock held.
  virtual py::handle self() const = 0;

protected:
  /// Enters the camera among those that `stopAllCameras` stops.
  Companion();
  virtual ~Companion();

private:
  template <typename Call>
  friend auto oneAtATime(StereoCamera& camera, const char* name, const Call& call);

  // Starting and stopping is for one thread at a time, but in Python a timer may stop a camera that its owner is about
  // to stop as well. Never waited for with the interpreter lock held.
  std::mutex m_mutex;
  std::atomic<std::thread::id> m_owner{};
};

/// Runs a start or a stop without the interpreter lock, one at a time for each camera. Raises RuntimeError, with
/// `name`, where waiting for its turn would never end: on one of the camera's workers, and within another start or
/// stop.
template <typename Call>
auto oneAtATime(StereoCamera& camera, const char* name, const Call& call) {
  Companion& companion = Companion::of(camera);
  const std::thread::id caller = std::this_thread::get_id();
  if (isWorkerOf(&camera) || companion.m_owner == caller) {
    throw std::runtime_error(std::string(name) +
                             " was called by what a worker or another start or stop runs; call it from another thread");
  }
  const Released released;
  const std::lock_guard turn(companion.m_mutex);
  companion.m_owner = caller;
  struct Done {
    ~Done() {
      ++companion.stops;
      companion.m_owner = std::thread::id();
    }
    Companion& companion;
  } const done{companion};
  return call();
}

/// Ends a camera that Python has let go of: stops its workers, whatever they wait for, and destroys it, with the
/// interpreter lock released. A worker that dropped the last reference itself leaves that to a thread of its own.
struct Retire {
  void operator()(StereoCamera* camera) const noexcept;
};

/// Stops the workers of all cameras and waits for those that are being retired. Before the interpreter goes: a worker
/// that asked for its lock then would never get it.
void stopAllCameras();

/// The Python object that pybind11 knows for a camera made as `type`, null if there is none or its last reference is
/// gone. Interpreter lock held.
py::handle selfOf(const void* camera, const std::type_info& type);

/// A camera as Python makes it; `Base` is the bound class.
template <typename Base>
class Handle : public Base, public Companion {
public:
  /// As `Base`'s, protected ones included; cameras are not copied.
  template <typename... Arguments>
  requires(!(std::is_base_of_v<StereoCamera, std::remove_cvref_t<Arguments>> ||
             ...)) explicit Handle(Arguments&&... arguments)
      : Base(std::forward<Arguments>(arguments)...) {}

  py::handle self() const override { return selfOf(static_cast<const Base*>(this), typeid(Base)); }
};

}  // namespace stereo::python
