// SPDX-License-Identifier: Apache-2.0
// Cameras owned by Python: their lifetime, starts and stops.
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

/// The module's data about each camera that Python made.
class Companion {
public:
  Companion(const Companion&) = delete;
  Companion& operator=(const Companion&) = delete;

  /// The companion of a camera; every camera that Python can reach has one.
  static Companion& of(StereoCamera& camera);

  /// Whether a start or stop is in progress.
  bool isStartingOrStopping() const { return m_owner != std::thread::id(); }

  /// Number of starts and stops that have ended.
  std::atomic<unsigned> stops{0};
  // Whether Python set `m_rawFrame` or `m_disparityFrame`, which publishes them.
  std::atomic<bool> publishesFrames{false};
  std::atomic<bool> publishesDisparities{false};

  /// The camera's Python object; null if there is none (anymore) or it is being destroyed. Interpreter lock held.
  virtual py::handle self() const = 0;

protected:
  /// Registers the camera for `stopAllCameras`.
  Companion();
  virtual ~Companion();

private:
  template <typename Call>
  friend auto oneAtATime(StereoCamera& camera, const char* name, const Call& call);

  // One thread at a time may start or stop, but in Python a timer may stop a camera while its owner does. Never waited
  // for with the interpreter lock held.
  std::mutex m_mutex;
  std::atomic<std::thread::id> m_owner{};
};

/// Runs a start or stop without the interpreter lock, one at a time for each camera. Raises RuntimeError, with `name`,
/// where waiting for its turn would never end: on one of the camera's workers, and within another start or stop.
template <typename Call>
auto oneAtATime(StereoCamera& camera, const char* name, const Call& call) {
  Companion& companion = Companion::of(camera);
  const std::thread::id caller = std::this_thread::get_id();
  if (isWorkerOf(&camera) || companion.m_owner == caller) {
    throw std::runtime_error(
        std::string(name) +
        " was called from a worker or from within another start or stop; call it from another thread");
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

/// Ends a camera that Python no longer refers to: stops its workers, whatever they wait for, and destroys it, with the
/// interpreter lock released. If a worker itself dropped the last reference, a new thread does it.
struct Retire {
  void operator()(StereoCamera* camera) const noexcept;
};

/// Stops the workers of all cameras and waits for those being retired. Must run before the interpreter ends, since a
/// worker would then never get its lock.
void stopAllCameras();

/// The Python object that pybind11 has for a camera made as `type`; null if there is none or its last reference is
/// gone. Interpreter lock held.
py::handle selfOf(const void* camera, const std::type_info& type);

/// A camera made by Python; `Base` is the bound class.
template <typename Base>
class Handle : public Base, public Companion {
public:
  /// `Base`'s constructors, including protected ones; cameras are not copyable.
  template <typename... Arguments>
  requires(!(std::is_base_of_v<StereoCamera, std::remove_cvref_t<Arguments>> ||
             ...)) explicit Handle(Arguments&&... arguments)
      : Base(std::forward<Arguments>(arguments)...) {}

  py::handle self() const override { return selfOf(static_cast<const Base*>(this), typeid(Base)); }
};

}  // namespace stereo::python
