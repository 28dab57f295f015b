// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/ViewServer.hpp"

#include <algorithm>
#include <atomic>
#include <deque>
#include <optional>
#include <set>
#include <thread>
#include <tuple>
#include <utility>

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include "apps/stereo-camera/output/Json.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/view/Page.hpp"

namespace stereo::app {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using beast::error_code;
using Clock = std::chrono::steady_clock;
using Request = http::request<http::string_body>;
using Reply = http::response<http::string_body>;

constexpr std::chrono::seconds requestTime{10};  // for a whole request to come, or an answer to go
constexpr std::chrono::seconds pictureTime{5};   // for a single picture to be made
constexpr std::chrono::milliseconds statusPeriod{500};
constexpr std::chrono::minutes refusalPeriod{10};
constexpr std::size_t mostInFlight = 2;  // pictures of a view that a viewer has not acknowledged
constexpr std::string_view protocolName = "stereo-camera.1";

// A peer that vanished without a word is noticed after a minute and a half, also while it waits for a picture.
void keepAlive(tcp::socket& socket) {
  for (const auto& [level, option, value] : {std::tuple{SOL_SOCKET, SO_KEEPALIVE, 1},
                                             {IPPROTO_TCP, TCP_KEEPIDLE, 60},
                                             {IPPROTO_TCP, TCP_KEEPINTVL, 10},
                                             {IPPROTO_TCP, TCP_KEEPCNT, 3}}) {
    static_cast<void>(setsockopt(socket.native_handle(), level, option, &value, sizeof value));
  }
}

// Readiness for a view's pictures, as long as this exists.
class Wanted {
public:
  Wanted(CameraFeed& feed, View view, bool full = false) : m_feed(&feed), m_view(view), m_full(full) {
    m_feed->want(m_view, 1, m_full);
  }
  ~Wanted() {
    if (m_feed != nullptr) {
      m_feed->want(m_view, -1, m_full);
    }
  }
  Wanted(Wanted&& other) noexcept
      : m_feed(std::exchange(other.m_feed, nullptr)), m_view(other.m_view), m_full(other.m_full) {}
  Wanted(const Wanted&) = delete;
  Wanted& operator=(const Wanted&) = delete;
  Wanted& operator=(Wanted&& other) noexcept {
    std::swap(m_feed, other.m_feed);
    std::swap(m_view, other.m_view);
    std::swap(m_full, other.m_full);
    return *this;
  }

private:
  CameraFeed* m_feed;
  View m_view;
  bool m_full;
};

std::string_view plain(beast::string_view text) { return {text.data(), text.size()}; }

// "192.0.2.1" also where a socket for both families calls it "::ffff:192.0.2.1".
std::string plainAddress(const tcp::endpoint& endpoint) {
  const asio::ip::address address = endpoint.address();
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
  }
  return address.to_string();
}

// What is to be done about a request.
struct Plan {
  enum class Kind { refuse, page, status, metrics, control, socket, stream, picture };

  Kind kind = Kind::refuse;
  unsigned status = 200;    // of a refusal
  const char* reason = "";  // of a refusal; also its kind in the log
  bool mayChange = false;
  const PageFile* page = nullptr;
  Form form;
  std::size_t camera = 0;
  View view = View::rawLeft;
};

Plan refusal(unsigned status, const char* reason) {
  Plan plan;
  plan.status = status;
  plan.reason = reason;
  return plan;
}

using Feeds = std::vector<std::pair<std::string, CameraFeed*>>;

// "/stream/CAMERA/VIEW.mjpeg", "/snapshot/CAMERA/VIEW.jpg"
Plan planPicture(const std::string& path, const Feeds& feeds) {
  Plan plan = refusal(404, "no such page");
  for (const auto& [begin, end, kind] :
       {std::tuple{std::string_view("/stream/"), std::string_view(".mjpeg"), Plan::Kind::stream},
        std::tuple{std::string_view("/snapshot/"), std::string_view(".jpg"), Plan::Kind::picture}}) {
    std::string_view rest = path;
    if (rest.substr(0, begin.size()) != begin || rest.size() < begin.size() + end.size() ||
        rest.substr(rest.size() - end.size()) != end) {
      continue;
    }
    rest = rest.substr(begin.size(), rest.size() - begin.size() - end.size());
    const std::size_t slash = rest.find('/');
    if (slash == std::string_view::npos) {
      continue;
    }
    const auto camera =
        std::find_if(feeds.begin(), feeds.end(), [&](const auto& each) { return each.first == rest.substr(0, slash); });
    std::optional<View> view = viewNamed(rest.substr(slash + 1));
    if (camera != feeds.end() && view) {
      plan.kind = kind;
      plan.camera = static_cast<std::size_t>(camera - feeds.begin());
      plan.view = *view == View::range ? View::rangeColor : *view;
    }
  }
  return plan;
}

// `local`: the address of this machine that the client reached, as text.
Plan planFor(const Request& request, const std::string& local, const ServerOptions& options, const Feeds& feeds) {
  const std::string_view host = plain(request[http::field::host]);
  const std::string name = hostName(host);
  if (name.empty() || request.count(http::field::host) != 1 ||
      (name != local && std::find(options.names.begin(), options.names.end(), name) == options.names.end())) {
    return refusal(403, "a Host that is not this machine: give its name with --allow-host if it is");
  }
  const auto origin = request.find(http::field::origin);
  if (origin != request.end() &&
      (request.count(http::field::origin) != 1 || !isOwnOrigin(plain(origin->value()), host))) {
    return refusal(403, "a page of another Origin");
  }
  const std::string_view site = plain(request["Sec-Fetch-Site"]);
  if ((site == "cross-site" || site == "same-site") && request["Sec-Fetch-Mode"] != "navigate") {
    return refusal(403, "a page of another Origin");
  }
  const std::optional<Target> target = parseTarget(plain(request.target()));
  if (!target) {
    return refusal(400, "a malformed target");
  }
  const bool isControl = target->path == "/control";
  const bool isRead = request.method() == http::verb::get || request.method() == http::verb::head;
  if (isControl ? request.method() != http::verb::post : !isRead) {
    return refusal(405, "a method that is not for this page");
  }
  Plan plan;
  plan.page = isControl ? nullptr : pageFile(target->path);
  if (plan.page != nullptr) {
    plan.kind = Plan::Kind::page;
    return plan;
  }
  std::string_view token = bearerToken(plain(request[http::field::authorization]));
  const std::string_view protocols = plain(request[http::field::sec_websocket_protocol]);
  if (token.empty() && target->path == "/socket") {
    token = protocolToken(protocols);
  }
  const std::string* const asked = valueOf(target->query, "token");
  if (token.empty() && asked != nullptr && !isControl) {
    token = *asked;
  }
  plan.mayChange = isSameToken(token, options.token);
  if (!plan.mayChange && (!token.empty() || options.tokenToSee || isControl)) {
    return refusal(401, token.empty() ? "no token: open the link that the program printed" : "a wrong token");
  }
  if (isControl) {
    auto form = parseForm(request.body());
    if (!form) {
      return refusal(400, "a malformed form");
    }
    plan.kind = Plan::Kind::control;
    plan.form = std::move(*form);
    return plan;
  }
  if (target->path == "/health") {
    plan.kind = Plan::Kind::status;
  } else if (target->path == "/metrics") {
    plan.kind = Plan::Kind::metrics;
  } else if (target->path == "/socket") {
    if (!websocket::is_upgrade(request) || !offersProtocol(protocols, protocolName)) {
      return refusal(400, "not the page's WebSocket");
    }
    plan.kind = Plan::Kind::socket;
  } else {
    const Plan picture = planPicture(target->path, feeds);
    return picture.kind != Plan::Kind::refuse && request.method() == http::verb::head
               ? refusal(405, "a method that is not for this page")
               : picture;
  }
  return plan;
}

template <typename Body>
void setHeaders(http::response<Body>& reply, const std::string& host) {
  reply.set(http::field::cache_control, "no-store");
  reply.set("X-Content-Type-Options", "nosniff");
  reply.set("X-Frame-Options", "DENY");
  reply.set("Referrer-Policy", "no-referrer");
  reply.set("Cross-Origin-Resource-Policy", "same-origin");
  reply.set("Content-Security-Policy",
            "default-src 'self'; connect-src 'self'" + (host.empty() ? "" : " ws://" + host + " wss://" + host) +
                "; object-src 'none'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'");
}

Reply textReply(unsigned status, const char* type, std::string body) {
  Reply reply{static_cast<http::status>(status), 11};
  reply.set(http::field::content_type, type);
  reply.body() = std::move(body);
  return reply;
}

Reply outcome(unsigned status, const std::string& message) {
  Json json;
  json.add("ok", status < 300).add("message", message);
  return textReply(status, "application/json", json.text());
}

// The answer to all that is answered at once.
Reply replyTo(const Plan& plan, ViewSite& site, int viewers) {
  switch (plan.kind) {
    case Plan::Kind::page: {
      Reply reply = textReply(200, "", std::string(plan.page->content));
      reply.set(http::field::content_type, {plan.page->type.data(), plan.page->type.size()});
      return reply;
    }
    case Plan::Kind::status:
      return textReply(site.isHealthy() ? 200 : 503, "application/json", site.status(false, viewers));
    case Plan::Kind::metrics:
      return textReply(200, "text/plain; version=0.0.4; charset=utf-8", site.metrics(viewers));
    case Plan::Kind::control: {
      const ControlReply done = site.control(plan.form);
      return outcome(done.status, done.message);
    }
    case Plan::Kind::refuse:
    case Plan::Kind::socket:
    case Plan::Kind::stream:
    case Plan::Kind::picture:
      break;
  }
  Reply reply = outcome(plan.status, std::string("refused: ") + plan.reason);
  if (plan.status == 405) {
    reply.set(http::field::allow, "GET, HEAD; POST for /control");
  }
  return reply;
}

float ageOf(const ViewMessage& message) {
  const auto now =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch());
  return static_cast<float>(static_cast<double>(now.count() - message.timestamp) / 1000.0);
}

unsigned statusOf(const error_code& error) {
  return error == http::error::header_limit ? 431 : error == http::error::body_limit ? 413 : 400;
}

using Parser = http::request_parser<http::string_body>;

void limit(Parser& parser) {
  parser.header_limit(mostHeaderBytes);
  parser.body_limit(mostBodyBytes);
}

}  // namespace

class ViewServer::Engine {
public:
  Engine(ServerOptions options, ViewSite& site)
      : m_options(std::move(options)),
        m_site(site),
        m_feeds(site.feeds()),
        m_acceptor(m_context),
        m_timer(m_context),
        m_retry(m_context) {
    listen();
    m_lastTurn = Clock::now().time_since_epoch().count();
    for (std::size_t camera = 0; camera < m_feeds.size(); ++camera) {
      m_feeds[camera].second->setNotify([this, camera](std::shared_ptr<const ViewMessage> message) {
        asio::post(m_context, [this, camera, message = std::move(message)] { distribute(camera, message); });
      });
    }
    accept();
    turn();
    m_thread = std::thread([this] { m_context.run(); });
  }

  ~Engine() {
    for (const auto& [name, feed] : m_feeds) {
      feed->setNotify(nullptr);
    }
    m_context.stop();
    m_thread.join();
    // Connections go with the handlers that own them; those still unregister here.
  }

  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Receives pictures. Registered while it exists.
  class Receiver {
  public:
    explicit Receiver(Engine& engine) : m_engine(engine) {}
    virtual ~Receiver() { m_engine.m_receivers.erase(this); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    // A picture of a camera. Does nothing if it is not ready for one.
    virtual void deliver(std::size_t camera, const std::shared_ptr<const ViewMessage>& message) = 0;
    // The status is to be sent.
    virtual void tellStatus() {}

  protected:
    Engine& engine() { return m_engine; }
    // False if too many watch already.
    bool enroll() {
      if (m_engine.m_receivers.size() >= m_engine.m_options.mostViewers) {
        return false;
      }
      m_engine.m_receivers.insert(this);
      return true;
    }

  private:
    Engine& m_engine;
  };

  void refused(const char* reason, const std::string& peer) {
    ++m_refusals;
    Refusals& known = m_refused[reason];
    ++known.count;
    const Clock::time_point now = Clock::now();
    if (known.count > 1 && now < known.told + refusalPeriod) {
      return;
    }
    m_options.log("view: refused " + peer + ": " + reason +
                  (known.count > 1 ? " (" + std::to_string(known.count) + " times so far)" : ""));
    known.told = now;
  }

  std::shared_ptr<const std::string> status(bool mayChange) {
    auto& text = m_status[mayChange ? 1 : 0];
    if (!text) {
      text = std::make_shared<const std::string>(m_site.status(mayChange, viewers()));
    }
    return text;
  }

  int viewers() const { return static_cast<int>(m_receivers.size()); }
  void soonTellStatus() {
    const Clock::time_point soon = Clock::now() + std::chrono::milliseconds(50);
    if (m_timer.expiry() > soon) {
      m_timer.expires_at(soon);
      waitForTurn();
    }
  }

  const ServerOptions m_options;
  ViewSite& m_site;
  const Feeds m_feeds;
  std::atomic<std::int64_t> m_lastTurn{0};
  std::atomic<std::uint64_t> m_refusals{0};
  std::uint16_t m_port = 0;
  std::size_t m_connections = 0;

private:
  struct Refusals {
    std::uint64_t count = 0;
    Clock::time_point told;
  };

  void listen();
  void accept();

  void turn() {
    m_lastTurn = Clock::now().time_since_epoch().count();
    m_status = {};
    // A copy, since a receiver that fails leaves the set.
    const std::vector<Receiver*> receivers(m_receivers.begin(), m_receivers.end());
    for (Receiver* const each : receivers) {
      if (m_receivers.count(each) != 0) {
        each->tellStatus();
      }
    }
    m_timer.expires_after(statusPeriod);
    waitForTurn();
  }

  void waitForTurn() {
    m_timer.async_wait([this](const error_code& error) {
      if (!error) {
        turn();
      }
    });
  }

  void distribute(std::size_t camera, const std::shared_ptr<const ViewMessage>& message) {
    const std::vector<Receiver*> receivers(m_receivers.begin(), m_receivers.end());
    for (Receiver* const each : receivers) {
      if (m_receivers.count(each) != 0) {
        each->deliver(camera, message);
      }
    }
  }

  std::set<Receiver*> m_receivers;
  std::map<std::string, Refusals> m_refused;  // by reason
  std::array<std::shared_ptr<const std::string>, 2> m_status;
  asio::io_context m_context{1};
  tcp::acceptor m_acceptor;
  asio::steady_timer m_timer;
  asio::steady_timer m_retry;
  std::thread m_thread;
};

// A page's WebSocket.
class PageSocket final : public ViewServer::Engine::Receiver, public std::enable_shared_from_this<PageSocket> {
public:
  PageSocket(ViewServer::Engine& engine, beast::tcp_stream stream, bool mayChange, std::string peer,
             std::shared_ptr<void> connection)
      : Receiver(engine),
        m_connection(std::move(connection)),
        m_stream(std::move(stream)),
        m_mayChange(mayChange),
        m_peer(std::move(peer)) {}

  void run(const Request& request) {
    m_stream.next_layer().expires_never();
    websocket::stream_base::timeout times{};
    times.handshake_timeout = requestTime;
    times.idle_timeout = engine().m_options.silence;  // a ping is sent at half of it
    times.keep_alive_pings = true;
    m_stream.set_option(times);
    m_stream.control_callback([this](websocket::frame_type, beast::string_view) { m_heard = Clock::now(); });
    m_stream.set_option(websocket::stream_base::decorator([](websocket::response_type& reply) {
      reply.set(http::field::sec_websocket_protocol, {protocolName.data(), protocolName.size()});
    }));
    m_stream.read_message_max(mostMessageBytes);
    m_stream.auto_fragment(false);
    m_stream.async_accept(request, [self = shared_from_this()](const error_code& error) {
      if (error) {
        return;
      }
      if (!self->enroll()) {
        self->engine().refused("too many viewers", self->m_peer);
        self->close(websocket::close_code::try_again_later);
        return;
      }
      self->read();
      self->tellStatus();
    });
  }

  void deliver(std::size_t camera, const std::shared_ptr<const ViewMessage>& message) override {
    ViewState& state = m_views.at(static_cast<std::size_t>(message->view));
    if (m_camera != camera || !state.wanted || message->isFull) {
      return;
    }
    m_unacknowledged.emplace_back(++m_number, message->view);
    if (++state.inFlight >= mostInFlight) {
      state.wanted.reset();
    }
    m_waiting.emplace_back(m_number, message);
    write();
  }

  void tellStatus() override {
    // The library's own limit ends once it has begun to close: it then waits for the other side.
    if (Clock::now() > m_heard + engine().m_options.silence + std::chrono::seconds(1)) {
      leave();
      m_stream.next_layer().close();
      return;
    }
    m_statusDue = true;
    write();
  }

private:
  struct ViewState {
    bool watched = false;
    std::size_t inFlight = 0;
    std::optional<Wanted> wanted;  // while it is watched and not too many are in flight
  };

  void read() {
    m_stream.async_read(m_incoming, [self = shared_from_this()](const error_code& error, std::size_t) {
      if (error == websocket::error::message_too_big || error == websocket::error::buffer_overflow) {
        self->engine().refused("a message that is too long", self->m_peer);
      } else if (error && error.category() == make_error_code(websocket::error::bad_opcode).category() &&
                 error != websocket::error::closed) {
        self->engine().refused("a malformed WebSocket frame", self->m_peer);
      }
      if (error) {
        self->leave();
        return;
      }
      self->handle();
    });
  }

  void handle() {
    m_heard = Clock::now();
    const bool isText = m_stream.got_text();
    const std::string text = beast::buffers_to_string(m_incoming.data());
    m_incoming.consume(m_incoming.size());
    const std::optional<ViewerMessage> message = isText ? parseViewerMessage(text) : std::nullopt;
    if (!message) {
      engine().refused("a message that it does not know", m_peer);
      close(websocket::close_code::policy_error);
      return;
    }
    if (const auto* const acknowledged = std::get_if<Acknowledged>(&*message)) {
      acknowledge(acknowledged->number);
    } else if (!watch(std::get<Watch>(*message))) {
      engine().refused("a camera that it does not have", m_peer);
      close(websocket::close_code::policy_error);
      return;
    }
    read();
  }

  bool watch(const Watch& watch) {
    const Feeds& feeds = engine().m_feeds;
    const auto found =
        std::find_if(feeds.begin(), feeds.end(), [&](const auto& each) { return each.first == watch.camera; });
    if (found == feeds.end()) {
      return false;
    }
    const auto camera = static_cast<std::size_t>(found - feeds.begin());
    if (camera != m_camera) {
      // What still waits is of no use; what was sent need not be acknowledged any more.
      m_views = {};
      m_unacknowledged.clear();
      m_waiting.clear();
      m_camera = camera;
    }
    for (std::size_t view = 0; view < viewCount; ++view) {
      m_views.at(view).watched = (watch.views & (1U << view)) != 0;
      prepare(static_cast<View>(view));
    }
    return true;
  }

  void prepare(View view) {
    ViewState& state = m_views.at(static_cast<std::size_t>(view));
    if (!state.watched || state.inFlight >= mostInFlight) {
      state.wanted.reset();
    } else if (!state.wanted) {
      state.wanted.emplace(*engine().m_feeds.at(m_camera).second, view);
    }
  }

  // Numbers that are not open are ignored: they may belong to a camera watched before.
  void acknowledge(std::uint32_t number) {
    const auto found = std::find_if(m_unacknowledged.begin(), m_unacknowledged.end(),
                                    [&](const auto& each) { return each.first == number; });
    if (found == m_unacknowledged.end()) {
      return;
    }
    const View view = found->second;
    m_unacknowledged.erase(found);
    --m_views.at(static_cast<std::size_t>(view)).inFlight;
    prepare(view);
  }

  void write() {
    if (m_isWriting || m_isClosing || !m_stream.is_open()) {
      return;
    }
    if (m_statusDue) {
      m_statusDue = false;
      m_isWriting = true;
      m_stream.text(true);
      auto status = engine().status(m_mayChange);
      m_stream.async_write(asio::buffer(*status), [self = shared_from_this(), status](
                                                      const error_code& error, std::size_t) { self->written(error); });
    } else if (!m_waiting.empty()) {
      const auto [number, message] = m_waiting.front();
      m_waiting.pop_front();
      m_isWriting = true;
      m_stream.binary(true);
      m_header = headerOf(*message, static_cast<std::uint16_t>(m_camera), number, ageOf(*message));
      const std::array<asio::const_buffer, 2> parts{asio::buffer(m_header), asio::buffer(message->payload)};
      m_stream.async_write(parts, [self = shared_from_this(), message = message](const error_code& error, std::size_t) {
        self->written(error);
      });
    }
  }

  void written(const error_code& error) {
    m_isWriting = false;
    if (error) {
      leave();
    } else if (m_isClosing) {
      finishClosing();
    } else {
      write();
    }
  }

  void close(websocket::close_code code) {
    m_closeCode = code;
    m_isClosing = true;
    leave();
    if (!m_isWriting) {
      finishClosing();
    }
  }

  void finishClosing() {
    m_stream.next_layer().expires_after(requestTime);  // for the other side to close, too
    m_stream.async_close(m_closeCode, [self = shared_from_this()](const error_code&) {});
  }

  // Wants no more pictures.
  void leave() {
    m_views = {};
    m_waiting.clear();
    m_isClosing = true;
  }

  std::shared_ptr<void> m_connection;  // counts it
  websocket::stream<beast::tcp_stream> m_stream;
  const bool m_mayChange;
  const std::string m_peer;
  beast::flat_static_buffer<mostMessageBytes + 1> m_incoming;
  std::size_t m_camera = ~std::size_t{0};  // none yet
  std::array<ViewState, viewCount> m_views;
  std::uint32_t m_number = 0;
  std::deque<std::pair<std::uint32_t, View>> m_unacknowledged;
  std::deque<std::pair<std::uint32_t, std::shared_ptr<const ViewMessage>>> m_waiting;  // at most two of each view
  MessageHeader m_header{};
  Clock::time_point m_heard = Clock::now();  // when the other side last sent anything that is whole
  bool m_statusDue = false;
  bool m_isWriting = false;
  bool m_isClosing = false;
  websocket::close_code m_closeCode = websocket::close_code::normal;
};

// A stream of pictures without end, or a single one, over plain HTTP.
class PictureReply final : public ViewServer::Engine::Receiver, public std::enable_shared_from_this<PictureReply> {
public:
  PictureReply(ViewServer::Engine& engine, beast::tcp_stream stream, const Plan& plan, std::string peer,
               std::shared_ptr<void> connection)
      : Receiver(engine),
        m_connection(std::move(connection)),
        m_stream(std::move(stream)),
        m_plan(plan),
        m_peer(std::move(peer)) {}

  void run(const std::string& host) {
    m_host = host;
    m_stream.expires_never();  // for the read that waits for the end; each write sets its own
    watchForEnd();
    if (!enroll()) {
      engine().refused("too many viewers", m_peer);
      finish(outcome(503, "too many viewers"));
      return;
    }
    if (m_plan.kind == Plan::Kind::picture) {
      m_timer.emplace(m_stream.get_executor(), pictureTime);
      m_timer->async_wait([self = shared_from_this()](const error_code& error) {
        if (!error && self->m_wanted) {
          self->m_wanted.reset();
          self->finish(outcome(503, "the camera has no such picture now"));
        }
      });
      want();
      return;
    }
    http::response<http::empty_body> head{http::status::ok, 11};
    setHeaders(head, m_host);
    head.set(http::field::content_type, "multipart/x-mixed-replace; boundary=frame");
    head.keep_alive(false);
    auto shared = std::make_shared<http::response<http::empty_body>>(std::move(head));
    auto serializer = std::make_shared<http::response_serializer<http::empty_body>>(*shared);
    m_stream.expires_after(requestTime);
    http::async_write_header(m_stream, *serializer,
                             [self = shared_from_this(), shared, serializer](const error_code& error, std::size_t) {
                               self->written(error);
                             });
  }

  void deliver(std::size_t camera, const std::shared_ptr<const ViewMessage>& message) override {
    const bool isSingle = m_plan.kind == Plan::Kind::picture;
    if (!m_wanted || camera != m_plan.camera || message->view != m_plan.view || message->isFull != isSingle) {
      return;
    }
    m_wanted.reset();
    if (isSingle) {
      m_timer->cancel();
      Reply reply{http::status::ok, 11};
      reply.set(http::field::content_type, "image/jpeg");
      reply.body().assign(message->payload.begin(), message->payload.end());
      finish(std::move(reply));
      return;
    }
    m_head = "--frame\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(message->payload.size()) +
             "\r\nX-Timestamp: " + std::to_string(message->timestamp) + "\r\n\r\n";
    const std::array<asio::const_buffer, 3> parts{asio::buffer(m_head), asio::buffer(message->payload),
                                                  asio::buffer("\r\n", 2)};
    m_stream.expires_after(engine().m_options.silence);
    asio::async_write(m_stream, parts, [self = shared_from_this(), message](const error_code& error, std::size_t) {
      self->written(error);
    });
  }

private:
  void want() {
    m_wanted.emplace(*engine().m_feeds.at(m_plan.camera).second, m_plan.view, m_plan.kind == Plan::Kind::picture);
  }

  void written(const error_code& error) {
    if (!error && !m_isOver) {
      m_stream.expires_never();
      want();
    }
  }

  // Whatever comes now, the end above all, ends it.
  void watchForEnd() {
    m_stream.async_read_some(asio::buffer(m_byte), [self = shared_from_this()](const error_code&, std::size_t) {
      self->m_isOver = true;
      self->m_wanted.reset();
      if (self->m_timer) {
        self->m_timer->cancel();
      }
      error_code ignored;
      self->m_stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
      self->m_stream.close();
    });
  }

  void finish(Reply reply) {
    setHeaders(reply, m_host);
    reply.keep_alive(false);
    reply.prepare_payload();
    auto shared = std::make_shared<Reply>(std::move(reply));
    m_stream.expires_after(requestTime);
    http::async_write(m_stream, *shared, [self = shared_from_this(), shared](const error_code&, std::size_t) {
      error_code ignored;
      self->m_stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
    });
  }

  std::shared_ptr<void> m_connection;
  beast::tcp_stream m_stream;
  const Plan m_plan;
  const std::string m_peer;
  std::string m_host;
  std::string m_head;
  std::array<char, 1> m_byte{};
  bool m_isOver = false;
  std::optional<Wanted> m_wanted;
  std::optional<asio::steady_timer> m_timer;
};

// A client's connection until it turns into one of the above.
class Connection final : public std::enable_shared_from_this<Connection> {
public:
  Connection(ViewServer::Engine& engine, tcp::socket socket, std::shared_ptr<void> connection)
      : m_engine(engine), m_connection(std::move(connection)), m_stream(std::move(socket)) {
    error_code ignored;
    const tcp::endpoint peer = m_stream.socket().remote_endpoint(ignored);
    const tcp::endpoint local = m_stream.socket().local_endpoint(ignored);
    m_peer = plainAddress(peer);
    m_local = plainAddress(local);
    m_stream.socket().set_option(tcp::no_delay(true), ignored);
  }

  void read() {
    m_parser.emplace();
    limit(*m_parser);
    m_isHead = false;
    m_stream.expires_after(requestTime);
    http::async_read(m_stream, m_buffer, *m_parser,
                     [self = shared_from_this()](const error_code& error, std::size_t) { self->received(error); });
  }

private:
  void received(const error_code& error) {
    if (error == beast::error::timeout && m_parser->got_some()) {
      m_engine.refused("a request that comes too slowly", m_peer);
      return;
    }
    if (error && error.category() == make_error_code(http::error::bad_version).category() &&
        error != http::error::end_of_stream && error != http::error::partial_message) {
      const unsigned status = statusOf(error);
      Plan plan = refusal(status, status == 431   ? "a header that is too long"
                                  : status == 413 ? "a body that is too long"
                                                  : "a malformed request");
      m_engine.refused(plan.reason, m_peer);
      send(replyTo(plan, m_engine.m_site, 0), "", false);
      return;
    }
    if (error) {
      return;
    }
    const Request request = m_parser->release();
    const Plan plan = planFor(request, m_local, m_engine.m_options, m_engine.m_feeds);
    const std::string host(plain(request[http::field::host]));
    switch (plan.kind) {
      case Plan::Kind::socket:
        std::make_shared<PageSocket>(m_engine, std::move(m_stream), plan.mayChange, m_peer, m_connection)->run(request);
        return;
      case Plan::Kind::stream:
      case Plan::Kind::picture:
        std::make_shared<PictureReply>(m_engine, std::move(m_stream), plan, m_peer, m_connection)->run(host);
        return;
      case Plan::Kind::refuse:
        m_engine.refused(plan.reason, m_peer);
        break;
      case Plan::Kind::control:
        m_engine.soonTellStatus();
        break;
      case Plan::Kind::page:
      case Plan::Kind::status:
      case Plan::Kind::metrics:
        break;
    }
    Reply reply = replyTo(plan, m_engine.m_site, m_engine.viewers());
    m_isHead = request.method() == http::verb::head;
    // A Host that was refused is not repeated to the browser.
    send(std::move(reply), plan.kind == Plan::Kind::refuse ? "" : host,
         request.keep_alive() && plan.kind != Plan::Kind::refuse);
  }

  void send(Reply reply, const std::string& host, bool keep) {
    setHeaders(reply, host);
    reply.keep_alive(keep);
    reply.prepare_payload();
    if (m_isHead) {
      reply.body().clear();  // its length stays in the header
    }
    auto shared = std::make_shared<Reply>(std::move(reply));
    m_stream.expires_after(requestTime);
    http::async_write(m_stream, *shared,
                      [self = shared_from_this(), shared, keep](const error_code& error, std::size_t) {
                        if (!error && keep) {
                          self->read();
                        } else {
                          error_code ignored;
                          self->m_stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
                        }
                      });
  }

  ViewServer::Engine& m_engine;
  std::shared_ptr<void> m_connection;
  beast::tcp_stream m_stream;
  beast::flat_static_buffer<mostHeaderBytes + mostBodyBytes> m_buffer;
  std::optional<Parser> m_parser;
  std::string m_peer;
  std::string m_local;
  bool m_isHead = false;
};

void ViewServer::Engine::listen() {
  error_code error;
  const auto address = asio::ip::make_address(m_options.address, error);
  if (error) {
    throw Failure(ExitCode::usage, "--listen: '" + m_options.address + "' is not an address such as 127.0.0.1");
  }
  const tcp::endpoint endpoint(address, m_options.port);
  m_acceptor.open(endpoint.protocol(), error);
  if (!error) {
    m_acceptor.set_option(asio::socket_base::reuse_address(true), error);
    m_acceptor.bind(endpoint, error);
  }
  if (!error) {
    m_acceptor.listen(asio::socket_base::max_listen_connections, error);
  }
  if (error) {
    throw Failure(ExitCode::output, "cannot listen on " + m_options.address + ", port " +
                                        std::to_string(m_options.port) + ": " + error.message());
  }
  m_port = m_acceptor.local_endpoint().port();
}

void ViewServer::Engine::accept() {
  m_acceptor.async_accept([this](const error_code& error, tcp::socket socket) {
    if (error == asio::error::operation_aborted) {
      return;
    }
    if (error) {
      // Out of descriptors, for example: later again.
      m_retry.expires_after(std::chrono::milliseconds(100));
      m_retry.async_wait([this](const error_code& stopped) {
        if (!stopped) {
          accept();
        }
      });
      return;
    }
    keepAlive(socket);
    if (m_connections >= m_options.mostConnections) {
      error_code ignored;
      refused("too many connections", plainAddress(socket.remote_endpoint(ignored)));
      socket.close(ignored);
    } else {
      ++m_connections;
      const std::shared_ptr<void> counted(this, [this](void*) { --m_connections; });
      std::make_shared<Connection>(*this, std::move(socket), counted)->read();
    }
    accept();
  });
}

ViewServer::ViewServer(ServerOptions options, ViewSite& site)
    : m_engine(std::make_unique<Engine>(std::move(options), site)) {}

ViewServer::~ViewServer() = default;

std::uint16_t ViewServer::port() const { return m_engine->m_port; }

Clock::time_point ViewServer::lastTurn() const {
  return Clock::time_point(Clock::duration(m_engine->m_lastTurn.load()));
}

std::uint64_t ViewServer::refusals() const { return m_engine->m_refusals; }

unsigned answerTo(std::string_view bytes, const ServerOptions& options, ViewSite& site) {
  Parser parser;
  limit(parser);
  parser.eager(true);
  error_code error;
  parser.put(asio::buffer(bytes.data(), bytes.size()), error);
  if (error == http::error::need_more || (!error && !parser.is_done())) {
    return 0;
  }
  if (error) {
    return statusOf(error);
  }
  const Plan plan = planFor(parser.get(), "127.0.0.1", options, site.feeds());
  switch (plan.kind) {
    case Plan::Kind::socket:
      return 101;
    case Plan::Kind::stream:
    case Plan::Kind::picture:
      return 200;
    default:
      return replyTo(plan, site, 0).result_int();
  }
}

}  // namespace stereo::app
