// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/service/Service.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <systemd/sd-daemon.h>
#include <time.h>
#include <unistd.h>

#include "apps/stereo-camera/doctor/SystemChecks.hpp"
#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/ResourceUsage.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "apps/stereo-camera/service/CameraKeeper.hpp"
#include "apps/stereo-camera/service/StatusText.hpp"
#include "apps/stereo-camera/service/Token.hpp"
#include "apps/stereo-camera/view/ViewServer.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds lookAround{100};
constexpr std::chrono::seconds loadPeriod{1};
constexpr std::chrono::milliseconds stopTime{2500};  // then the process ends whatever a device does
// A device that has to be given up may take a quarter of a minute; more, and the service manager shall know.
constexpr std::chrono::seconds longestTurn{45};

// The log of the program; lines of several threads do not mix.
void log(const std::string& text) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  std::cerr << "stereo-camera: " + text + "\n" << std::flush;
}

bool isLoopback(const std::string& address) {
  in_addr four{};
  in6_addr six{};
  if (inet_pton(AF_INET, address.c_str(), &four) == 1) {
    return (ntohl(four.s_addr) >> 24) == 127;
  }
  return inet_pton(AF_INET6, address.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

// An address at which others reach this machine, if it listens on all of them.
std::string reachableAddress(const std::string& listen) {
  if (listen != "0.0.0.0" && listen != "::") {
    return listen.find(':') == std::string::npos ? listen : "[" + listen + "]";
  }
  ifaddrs* list = nullptr;
  std::string found = "127.0.0.1";
  if (getifaddrs(&list) == 0) {
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
      std::array<char, INET_ADDRSTRLEN> text{};
      if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET &&
          inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr, text.data(),
                    text.size()) != nullptr &&
          !isLoopback(text.data())) {
        return text.data();
      }
    }
  }
  return found;
}

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// Names by which browsers may call this machine, besides the address that they reached. Its own loopback address is the
// name where a container's port is published.
std::vector<std::string> namesOfThisMachine(const std::vector<std::string>& more) {
  std::vector<std::string> names{"localhost", "127.0.0.1", "::1"};
  std::array<char, 256> own{};
  if (gethostname(own.data(), own.size() - 1) == 0 && own.front() != '\0') {
    names.push_back(lowerCase(own.data()));
    names.push_back(names.back() + ".local");
  }
  for (const std::string& each : more) {
    names.push_back(lowerCase(each));
  }
  return names;
}

std::optional<double> numberIn(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0' && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

// The cameras, as the server sees them.
class Cameras final : public ViewSite {
public:
  Cameras(const ServiceOptions& options, const std::vector<CameraPlan>& plans) {
    for (const CameraPlan& plan : plans) {
      m_keepers.push_back(std::make_unique<CameraKeeper>(plan, options.folders, log));
    }
  }

  ~Cameras() override {
    for (const auto& each : m_keepers) {
      each->requestStop();  // all at once
    }
  }

  std::vector<std::unique_ptr<CameraKeeper>>& keepers() { return m_keepers; }

  std::vector<CameraStatus> cameras() const {
    std::vector<CameraStatus> result;
    for (const auto& each : m_keepers) {
      result.push_back(each->status());
    }
    return result;
  }

  // The main thread's, once a second.
  void measureLoad() {
    const std::optional<std::int64_t> used = machineMicroseconds();
    const std::optional<double> temperature = machineTemperature();  // sensors may be slow: not under the lock
    const Clock::time_point now = Clock::now();
    const std::lock_guard lock(m_mutex);
    const double elapsed = std::chrono::duration<double, std::micro>(now - m_measured).count();
    if (used && m_used && elapsed > 0) {
      const double all = elapsed * std::max(1U, processorCount());
      m_load = std::clamp(100.0 * static_cast<double>(*used - *m_used) / all, 0.0, 100.0);
    }
    m_used = used;
    m_measured = now;
    m_temperature = temperature;
  }

  // Filled in once the server exists.
  void setServer(const ViewServer* server) {
    const std::lock_guard lock(m_mutex);
    m_server = server;
  }

  std::vector<std::pair<std::string, CameraFeed*>> feeds() override {
    std::vector<std::pair<std::string, CameraFeed*>> result;
    for (const auto& each : m_keepers) {
      result.emplace_back(each->plan().name, &each->feed());
    }
    return result;
  }

  std::string status(bool mayChange, int viewers) override { return statusJson(cameras(), board(viewers), mayChange); }

  bool isHealthy() override {
    const std::vector<CameraStatus> all = cameras();
    return std::all_of(all.begin(), all.end(),
                       [](const CameraStatus& each) { return each.state == CameraStatus::State::running; });
  }

  std::string metrics(int viewers) override { return metricsText(cameras(), board(viewers)); }

  ControlReply control(const Form& form) override {
    const std::string* const name = valueOf(form, "camera");
    const std::string* const action = valueOf(form, "action");
    if (name == nullptr || action == nullptr) {
      return {400, "camera and action are needed"};
    }
    const auto keeper =
        std::find_if(m_keepers.begin(), m_keepers.end(), [&](const auto& each) { return each->plan().name == *name; });
    if (keeper == m_keepers.end()) {
      return {404, "there is no such camera"};
    }
    return act(**keeper, *action, form);
  }

private:
  static ControlReply act(CameraKeeper& keeper, const std::string& action, const Form& form) {
    if (action == "wide") {
      return setWide(keeper, form);
    }
    const bool isKnown = action == "record" || action == "snapshot" || action == "check";
    if (!isKnown) {
      return {400, "actions are record, snapshot, check and wide"};
    }
    if (keeper.status().state != CameraStatus::State::running) {
      return {409, "no frames come"};
    }
    if (action == "snapshot") {
      keeper.takeSnapshot();
      return {200, "taking a snapshot"};
    }
    if (action == "check") {
      keeper.check();
      return {200, "checking the calibration"};
    }
    const std::string* const on = valueOf(form, "on");
    if (on == nullptr || (*on != "0" && *on != "1")) {
      return {400, "on is 0 or 1"};
    }
    keeper.record(*on == "1");
    return {200, *on == "1" ? "recording begins" : "recording ends"};
  }

  static ControlReply setWide(CameraKeeper& keeper, const Form& form) {
    WideDepthOptions options = keeper.wide().options();
    for (const auto& [name, value] : form) {
      const std::optional<double> number = numberIn(value);
      if (name == "camera" || name == "action") {
        continue;
      }
      if (name == "nearest" && number) {
        options.nearest = *number;
      } else if (name == "farthest" && number) {
        options.farthest = *number;
      } else if (name == "fuse" && (value == "0" || value == "1")) {
        options.fuse = value == "1";
      } else if (name == "selfCalibrate" && (value == "0" || value == "1")) {
        options.selfCalibrate = value == "1";
      } else {
        return {400, "nearest and farthest are meters, fuse and selfCalibrate 0 or 1"};
      }
    }
    if (!(options.nearest >= 0.01 && options.nearest < options.farthest && options.farthest <= 10000)) {
      return {400, "nearest must be at least 0.01 m and less than farthest, which is at most 10000 m"};
    }
    keeper.wide().setOptions(options);
    return {200, "wide depth has new options"};
  }

  BoardStatus board(int viewers) const {
    BoardStatus board;
    const std::lock_guard lock(m_mutex);
    board.temperature = m_temperature;
    board.load = m_load;
    board.processors = processorCount();
    board.megabytes = residentMegabytes();
    board.uptime = std::chrono::duration<double>(Clock::now() - m_began).count();
    board.now = systemMicroseconds();
    board.viewers = viewers;
    board.refusals = m_server == nullptr ? 0 : m_server->refusals();
    return board;
  }

  const Clock::time_point m_began = Clock::now();
  std::vector<std::unique_ptr<CameraKeeper>> m_keepers;
  mutable std::mutex m_mutex;  // guards what follows
  std::optional<double> m_load;
  std::optional<double> m_temperature;
  std::optional<std::int64_t> m_used;
  Clock::time_point m_measured;
  const ViewServer* m_server = nullptr;
};

ServerOptions serverOptions(const ServiceOptions& options, const std::string& token) {
  ServerOptions server;
  server.address = options.listen;
  server.port = static_cast<std::uint16_t>(options.port);
  server.token = token;
  server.tokenToSee = !isLoopback(options.listen);
  server.names = namesOfThisMachine(options.names);
  server.log = log;
  return server;
}

void tellLink(const ServiceOptions& options, std::uint16_t port, const std::string& token, bool isNew) {
  const std::string page = "http://" + reachableAddress(options.listen) + ":" + std::to_string(port) + "/";
  if (isNew) {
    results() << "view: " << page << "#token=" << token << std::endl;
  } else {
    results() << "view: " << page << " (the token is in " << options.tokenFile << ")" << std::endl;
  }
}

std::string summary(const std::vector<CameraStatus>& cameras) {
  std::string text;
  for (const CameraStatus& each : cameras) {
    text += (text.empty() ? "" : "; ") + each.name +
            (each.state == CameraStatus::State::running ? model::formatted(": %.1f frames a second", each.rate)
                                                        : ": no frames, " + each.reason);
  }
  return text;
}

// Tells the service manager how things are. All of this does nothing without one.
class ServiceManager {
public:
  explicit ServiceManager(bool isService) : m_isService(isService) {
    std::uint64_t microseconds = 0;
    if (m_isService && sd_watchdog_enabled(0, &microseconds) > 0) {
      m_aliveEvery = std::chrono::microseconds(microseconds) / 2;
    }
  }

  void ready() const { tell("READY=1"); }
  void stopping() const { tell("STOPPING=1"); }
  void reloading() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    tell(model::formatted("RELOADING=1\nMONOTONIC_USEC=%lld",
                          static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000));
  }
  void status(const std::string& text) {
    if (text != m_status) {
      m_status = text;
      tell("STATUS=" + text);
    }
  }
  void alive() {
    const Clock::time_point now = Clock::now();
    if (m_aliveEvery.count() > 0 && now >= m_told + m_aliveEvery) {
      m_told = now;
      tell("WATCHDOG=1");
    }
  }

private:
  void tell(const std::string& state) const {
    if (m_isService) {
      sd_notify(0, state.c_str());
    }
  }

  const bool m_isService;
  std::chrono::microseconds m_aliveEvery{0};
  Clock::time_point m_told;
  std::string m_status;
};

// Waits until all cameras have stopped; ends the process if one does not, since a device may never return from its
// read.
void stop(Cameras& cameras) {
  for (const auto& each : cameras.keepers()) {
    each->requestStop();
  }
  const Clock::time_point until = Clock::now() + stopTime;
  const auto haveStopped = [&] {
    return std::all_of(cameras.keepers().begin(), cameras.keepers().end(),
                       [](const auto& each) { return each->hasStopped(); });
  };
  while (!haveStopped()) {
    if (Clock::now() > until) {
      for (const auto& each : cameras.keepers()) {
        if (!each->hasStopped()) {
          log(each->plan().name + ": does not stop in time, because of its device or its disk; giving up on it");
        }
        if (each->plan().share) {
          removeOwnSegment(each->status().position);
        }
      }
      std::_Exit(0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

void runService(const ServiceOptions& options, const std::vector<CameraPlan>& plans) {
  // GStreamer's own source keeps a descriptor each time a camera is opened. OpenCV reads this once, later.
  setenv("OPENCV_VIDEOIO_PRIORITY_V4L2", "999", 0);
  if (options.isService) {
    takeHangupForReload();
  }
  bool isNew = true;
  const std::string token = !options.view               ? ""
                            : options.tokenFile.empty() ? newToken()
                                                        : tokenFrom(options.tokenFile, isNew);
  Cameras cameras(options, plans);
  std::optional<ViewServer> server;
  if (options.view) {
    server.emplace(serverOptions(options, token), cameras);
    cameras.setServer(&*server);
    tellLink(options, server->port(), token, isNew);
  }
  ServiceManager manager(options.isService);
  manager.ready();
  const Clock::time_point began = Clock::now();
  Clock::time_point measured;
  while (signalReceived() == 0 &&
         (options.seconds <= 0 || Clock::now() < began + std::chrono::duration<double>(options.seconds))) {
    if (options.isService && takeReload()) {
      manager.reloading();
      for (const auto& each : cameras.keepers()) {
        each->reload();
      }
      manager.ready();
    }
    const Clock::time_point now = Clock::now();
    if (now >= measured + loadPeriod) {
      measured = now;
      cameras.measureLoad();
      manager.status(summary(cameras.cameras()));
    }
    const bool isTurning = std::all_of(cameras.keepers().begin(), cameras.keepers().end(),
                                       [now](const auto& each) { return now - each->lastTurn() < longestTurn; }) &&
                           (!server || now - server->lastTurn() < longestTurn);
    if (isTurning) {
      manager.alive();
    }
    std::this_thread::sleep_for(lookAround);
  }
  manager.stopping();
  stop(cameras);
  cameras.setServer(nullptr);
}

}  // namespace stereo::app
