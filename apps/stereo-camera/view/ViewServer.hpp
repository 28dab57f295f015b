// SPDX-License-Identifier: Apache-2.0
// The server of the live view. Only its source knows the library that it is made with.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "apps/stereo-camera/view/CameraFeed.hpp"
#include "apps/stereo-camera/view/Requests.hpp"

namespace stereo::app {

/// The answer to a request for a change.
struct ControlReply {
  unsigned status = 200;  ///< of HTTP
  std::string message;    ///< one line
};

/// What the server serves. It calls all of this on its own thread, and nothing may block: capture goes on, but every
/// viewer waits.
class ViewSite {
public:
  virtual ~ViewSite() = default;
  ViewSite(const ViewSite&) = delete;
  ViewSite& operator=(const ViewSite&) = delete;

  /// The cameras' feeds, by name, in the order of the status. They outlive the server.
  virtual std::vector<std::pair<std::string, CameraFeed*>> feeds() = 0;
  /// The status as JSON. `mayChange`: for a viewer that may.
  virtual std::string status(bool mayChange, int viewers) = 0;
  /// Whether all cameras deliver.
  virtual bool isHealthy() = 0;
  /// The same as text for Prometheus.
  virtual std::string metrics(int viewers) = 0;
  /// Does what a form asks for.
  virtual ControlReply control(const Form& form) = 0;

protected:
  ViewSite() = default;
};

struct ServerOptions {
  std::string address = "127.0.0.1";  ///< to listen on
  std::uint16_t port = 8080;          ///< 0: any that is free
  std::string token;                  ///< whoever has it may change things
  bool tokenToSee = false;            ///< and only they may see anything, except the page without content
  std::vector<std::string> names;     ///< by which browsers may know this machine, besides the address they reached
  std::size_t mostConnections = 64;
  std::size_t mostViewers = 16;      ///< of them that watch: pages, streams, single pictures
  std::chrono::seconds silence{30};  ///< after which a viewer that answers nothing, or takes nothing, is gone
  /// Called on the server's thread with a line for the log about a refusal: the first of its kind, then at most one
  /// every ten minutes.
  std::function<void(const std::string&)> log = [](const std::string&) {};
};

/// Limits on what a client may send.
constexpr std::size_t mostHeaderBytes = 8192;
constexpr std::size_t mostBodyBytes = 4096;
constexpr std::size_t mostMessageBytes = 512;

/// Serves page, pictures, status and controls over HTTP and WebSocket, on one thread of its own.
///
/// A request is refused unless its Host names this machine, its Origin (if a browser sends one) is the server's own
/// page, and it has the token where one is needed. A client that is slow, or sends too much, loses its connection; it
/// never delays another, nor capture.
class ViewServer {
public:
  /// Listens at once. Throws Failure (output) if it cannot. The site outlives the server.
  ViewServer(ServerOptions options, ViewSite& site);
  /// Ends all connections.
  ~ViewServer();
  ViewServer(const ViewServer&) = delete;
  ViewServer& operator=(const ViewServer&) = delete;

  std::uint16_t port() const;
  /// When its thread last went through its loop, at most a second ago while it is well. Any thread.
  std::chrono::steady_clock::time_point lastTurn() const;
  /// How many requests were refused so far. Any thread.
  std::uint64_t refusals() const;

  class Engine;

private:
  std::unique_ptr<Engine> m_engine;
};

/// For the fuzzer: reads bytes as a request, as the server does, and returns the status of the answer that it would
/// send, 101 for a WebSocket, or 0 if the request is not complete.
unsigned answerTo(std::string_view bytes, const ServerOptions& options, ViewSite& site);

}  // namespace stereo::app
