// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <thread>

#include "StereoCamera.hpp"
#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"

namespace stereo::app {

/// One kind of product, read over and over on a thread of its own, from construction until the camera is stopped.
class Reader {
public:
  /// Reads once; the timestamp that goes with the result in system microseconds, 0 if there was none.
  using Read = std::function<std::int64_t()>;

  Reader(std::string name, StereoCamera& camera, Read read);
  /// Whoever the reader waits for is to have released it.
  ~Reader() { end(); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  const std::string& name() const { return m_name; }
  bool hasRead() const { return m_hasRead; }
  /// A read has thrown, and the thread ended with it.
  bool failed() const { return m_failed; }
  void askToEnd() { m_ending = true; }
  void end();
  /// Once ended: throws what the reads threw.
  void check() const;
  /// Once ended.
  const BoundedList<Product>& products() const { return m_products; }

private:
  void loop();

  const std::string m_name;
  StereoCamera& m_camera;
  const Read m_read;
  BoundedList<Product> m_products{RunRecord::defaultCapacity};
  std::exception_ptr m_error;
  std::atomic<bool> m_hasRead{false};
  std::atomic<bool> m_failed{false};
  std::atomic<bool> m_ending{false};
  std::thread m_thread;  // the last: it uses the others
};

/// The three readers of a measured run, on a camera that is a `MeasuredCamera`. They are ended by stopping the camera.
class Readers {
public:
  Readers(StereoCamera& camera, Watchdog& watch);
  ~Readers() { end(); }
  Readers(const Readers&) = delete;
  Readers& operator=(const Readers&) = delete;

  bool failed() const { return pair.failed() || depth.failed() || cloud.failed(); }
  /// The first that has read nothing yet; null if all have.
  const Reader* waiting() const;
  /// Stops the camera, which releases who waits in it, and the readers with it.
  void end();
  /// Once ended: throws what a reader met with.
  void check() const;

private:
  Watchdog& m_watch;

public:
  Reader pair;   ///< timestamps are those of the raw frames
  Reader depth;  ///< timestamps are those of the raw frames that woke the reader
  Reader cloud;  ///< timestamps are those of the disparities
};

}  // namespace stereo::app
