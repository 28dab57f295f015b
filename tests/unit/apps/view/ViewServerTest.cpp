// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/ViewServer.hpp"

#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/stereo-camera/process/Failure.hpp"
#include "tests/support/LoopbackClient.hpp"

namespace stereo::app {
namespace {

using std::string_literals::operator""s;
using test::LoopbackClient;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string token = "0123456789abcdef0123456789abcdef";

class FakeSite final : public ViewSite {
public:
  std::vector<std::pair<std::string, CameraFeed*>> feeds() override { return {{"front", &front}, {"rear", &rear}}; }
  std::string status(bool mayChange, int) override { return mayChange ? "{\"may\":1}" : "{\"may\":0}"; }
  bool isHealthy() override { return healthy; }
  std::string metrics(int viewers) override { return "viewers " + std::to_string(viewers) + "\n"; }
  ControlReply control(const Form& form) override {
    const std::string* const action = valueOf(form, "action");
    const std::lock_guard lock(mutex);
    controls.push_back(action == nullptr ? "" : *action);
    return {200, "done"};
  }

  CameraFeed front;
  CameraFeed rear;
  std::atomic<bool> healthy{true};
  std::mutex mutex;
  std::vector<std::string> controls;
};

// What a browser sends in a masked frame: final, `opcode`, short payload.
std::string frame(int opcode, const std::string& payload) {
  const std::string mask = "\x11\x22\x33\x44";
  std::string bytes{static_cast<char>(0x80 | opcode), static_cast<char>(0x80 | payload.size())};
  bytes += mask;
  for (std::size_t k = 0; k < payload.size(); ++k) {
    bytes += static_cast<char>(payload[k] ^ mask[k % 4]);
  }
  return bytes;
}

struct Frame {
  int opcode = -1;  // -1: the connection has ended
  std::string payload;
};

Frame nextFrame(LoopbackClient& client) {
  const std::string head = client.receive(2);
  if (head.size() < 2) {
    return {};
  }
  std::size_t size = static_cast<unsigned char>(head[1]) & 0x7FU;
  const std::size_t more = size == 126 ? 2 : size == 127 ? 8 : 0;
  if (more > 0) {
    size = 0;
    for (const char each : client.receive(more)) {
      size = 256 * size + static_cast<unsigned char>(each);
    }
  }
  return {head[0] & 0x0F, client.receive(size)};
}

// The next frame that is neither status nor ping.
Frame nextPicture(LoopbackClient& client) {
  while (true) {
    Frame frame = nextFrame(client);
    if (frame.opcode != 1 && frame.opcode != 9) {
      return frame;
    }
  }
}

template <typename Value>
Value valueAt(const std::string& bytes, std::size_t offset) {
  Value value{};
  std::memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

ViewMessage picture(View view, const std::string& bytes) {
  ViewMessage message;
  message.view = view;
  message.timestamp = 1'700'000'000'123'456;
  message.size = {64, 48};
  message.payload.assign(bytes.begin(), bytes.end());
  return message;
}

class ViewServerTest : public testing::Test {
protected:
  void start(bool tokenToSee = false, std::size_t mostConnections = 64) {
    ServerOptions options;
    options.port = 0;
    options.token = token;
    options.tokenToSee = tokenToSee;
    options.names = {"localhost", "robot.local"};
    options.mostConnections = mostConnections;
    options.mostViewers = 4;
    options.silence = silence;
    options.log = [this](const std::string& line) {
      const std::lock_guard lock(m_mutex);
      m_log.push_back(line);
    };
    server = std::make_unique<ViewServer>(options, site);
  }

  std::string host() const { return "127.0.0.1:" + std::to_string(server->port()); }

  // The whole answer to a request of these lines, after which the server closes.
  std::string ask(const std::string& first, const std::string& headers = "", const std::string& body = "") {
    LoopbackClient client(server->port());
    client.send(first + " HTTP/1.1\r\nHost: " + host() + "\r\nConnection: close\r\n" + headers +
                (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") + "\r\n" + body);
    return client.receiveAll();
  }

  std::string upgrade(const std::string& more = "", const std::string& protocols = "stereo-camera.1") {
    return "GET /socket HTTP/1.1\r\nHost: " + host() +
           "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n"
           "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: " +
           protocols + "\r\n" + more + "\r\n";
  }

  // A page that watches.
  std::unique_ptr<LoopbackClient> page(const std::string& watch) {
    auto client = std::make_unique<LoopbackClient>(server->port());
    client->send(upgrade());
    EXPECT_THAT(client->receiveUntil("\r\n\r\n"), StartsWith("HTTP/1.1 101"));
    client->send(frame(1, watch));
    return client;
  }

  std::vector<std::string> log() {
    const std::lock_guard lock(m_mutex);
    return m_log;
  }

  FakeSite site;
  std::unique_ptr<ViewServer> server;
  std::chrono::seconds silence{30};

private:
  std::mutex m_mutex;
  std::vector<std::string> m_log;
};

TEST_F(ViewServerTest, ServesThePageWithItsSecurityHeaders) {
  start();
  const std::string page = ask("GET /");
  EXPECT_THAT(page, AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("<!doctype html>"), HasSubstr("text/html")));
  EXPECT_THAT(page, HasSubstr("Content-Security-Policy: default-src 'self'; connect-src 'self' ws://" + host()));
  EXPECT_THAT(page, AllOf(HasSubstr("X-Content-Type-Options: nosniff"), HasSubstr("Cache-Control: no-store")));
  for (const char* const file : {"/app.js", "/style.css", "/icon.svg"}) {
    EXPECT_THAT(ask("GET "s + file), StartsWith("HTTP/1.1 200")) << file;
  }
  EXPECT_THAT(log(), ElementsAre());
}

TEST_F(ViewServerTest, ReportsHealthAndMetrics) {
  start();
  EXPECT_THAT(ask("GET /health"), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("{\"may\":0}")));
  site.healthy = false;
  EXPECT_THAT(ask("GET /health"), StartsWith("HTTP/1.1 503"));
  EXPECT_THAT(ask("GET /metrics"), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("viewers 0")));
  EXPECT_THAT(ask("HEAD /metrics"), AllOf(StartsWith("HTTP/1.1 200"), Not(HasSubstr("viewers 0"))));
}

TEST_F(ViewServerTest, AnswersSeveralRequestsOfOneConnection) {
  start();
  LoopbackClient client(server->port());
  for (int k = 0; k < 3; ++k) {
    client.send("GET /metrics HTTP/1.1\r\nHost: " + host() + "\r\n\r\n");
    EXPECT_THAT(client.receiveUntil("viewers 0\n"), StartsWith("HTTP/1.1 200"));
  }
}

TEST_F(ViewServerTest, KnowsThisMachineByItsNamesOnly) {
  start();
  const auto statusFor = [&](const std::string& name) {
    LoopbackClient client(server->port());
    client.send("GET /health HTTP/1.1\r\n" + name + "Connection: close\r\n\r\n");
    return client.receiveAll().substr(0, 12);
  };
  EXPECT_EQ(statusFor("Host: 127.0.0.1\r\n"), "HTTP/1.1 200");
  EXPECT_EQ(statusFor("Host: LocalHost:8080\r\n"), "HTTP/1.1 200");
  EXPECT_EQ(statusFor("Host: robot.local\r\n"), "HTTP/1.1 200");
  EXPECT_EQ(statusFor("Host: evil.example\r\n"), "HTTP/1.1 403");
  EXPECT_EQ(statusFor("Host: 127.0.0.1.evil.example\r\n"), "HTTP/1.1 403");
  EXPECT_EQ(statusFor("Host: 192.0.2.1\r\n"), "HTTP/1.1 403");
  EXPECT_EQ(statusFor("Host: localhost\r\nHost: evil.example\r\n"), "HTTP/1.1 403");
  EXPECT_EQ(statusFor("Host:\r\n"), "HTTP/1.1 403");
  EXPECT_EQ(statusFor(""), "HTTP/1.1 403");
  EXPECT_EQ(log().size(), 1U);  // once for all of them
}

TEST_F(ViewServerTest, RefusesPagesOfOtherOrigins) {
  start();
  EXPECT_THAT(ask("GET /health", "Origin: http://" + host() + "\r\n"), StartsWith("HTTP/1.1 200"));
  for (const std::string& origin : {"http://evil.example"s, "null"s, "http://127.0.0.1:1"s, "file://"s,
                                    "http://" + host() + ".evil.example", "http://evil.example/" + host()}) {
    EXPECT_THAT(ask("GET /health", "Origin: " + origin + "\r\n"), StartsWith("HTTP/1.1 403")) << origin;
    LoopbackClient client(server->port());
    client.send(upgrade("Origin: " + origin + "\r\n"));
    EXPECT_THAT(client.receiveAll(), StartsWith("HTTP/1.1 403")) << origin;
  }
  EXPECT_THAT(ask("GET /health", "Sec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: no-cors\r\n"),
              StartsWith("HTTP/1.1 403"));
  EXPECT_EQ(log().size(), 1U);
}

TEST_F(ViewServerTest, ChangesByPostWithTheTokenOnly) {
  start();
  const std::string bearer = "Authorization: Bearer " + token + "\r\n";
  EXPECT_THAT(ask("POST /control", "", "action=check"), StartsWith("HTTP/1.1 401"));
  EXPECT_THAT(ask("POST /control?token=" + token, "", "action=check"), StartsWith("HTTP/1.1 401"));
  EXPECT_THAT(ask("POST /control", "Authorization: Bearer " + token + "0\r\n", "action=check"),
              StartsWith("HTTP/1.1 401"));
  EXPECT_THAT(ask("GET /control", bearer), StartsWith("HTTP/1.1 405"));
  EXPECT_THAT(ask("POST /control", bearer + "Origin: http://evil.example\r\n", "action=check"),
              StartsWith("HTTP/1.1 403"));
  EXPECT_THAT(ask("POST /control", bearer, "action=%zz"), StartsWith("HTTP/1.1 400"));
  for (const char* const method : {"POST", "PUT", "DELETE", "PATCH", "TRACE", "OPTIONS", "CONNECT"}) {
    EXPECT_THAT(ask(method + " /health"s, bearer), StartsWith("HTTP/1.1 405")) << method;
  }
  EXPECT_THAT(site.controls, ElementsAre());
  EXPECT_THAT(ask("POST /control", bearer, "camera=front&action=check"),
              AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("\"ok\": true"), HasSubstr("done")));
  EXPECT_THAT(site.controls, ElementsAre("check"));
}

TEST_F(ViewServerTest, AsksForTheTokenForEverythingIfTold) {
  start(true);
  EXPECT_THAT(ask("GET /"), StartsWith("HTTP/1.1 200"));  // the page itself shows nothing
  for (const char* const path : {"/health", "/metrics", "/snapshot/front/left.jpg", "/stream/front/left.mjpeg"}) {
    EXPECT_THAT(ask("GET "s + path), StartsWith("HTTP/1.1 401")) << path;
    EXPECT_THAT(ask("GET "s + path + "?token=wrong"), StartsWith("HTTP/1.1 401")) << path;
  }
  EXPECT_THAT(ask("GET /health?token=" + token), StartsWith("HTTP/1.1 200"));
  EXPECT_THAT(ask("GET /health", "Authorization: Bearer " + token + "\r\n"), StartsWith("HTTP/1.1 200"));
  LoopbackClient stranger(server->port());
  stranger.send(upgrade());
  EXPECT_THAT(stranger.receiveAll(), StartsWith("HTTP/1.1 401"));
  LoopbackClient page(server->port());
  page.send(upgrade("", "stereo-camera.1, token." + token));
  EXPECT_THAT(page.receiveUntil("\r\n\r\n"),
              AllOf(StartsWith("HTTP/1.1 101"), HasSubstr("Sec-WebSocket-Protocol: stereo-camera.1\r\n")));
  EXPECT_EQ(nextFrame(page).payload, "{\"may\":1}");
}

TEST_F(ViewServerTest, HasNoFilesToWalkTo) {
  start();
  for (const char* const path : {"/../../etc/passwd", "/..%2f..%2fetc/passwd", "/snapshot/front/../../x.jpg",
                                 "/snapshot/../front/left.jpg", "/stream/front/left.jpg", "/snapshot/front/nothing.jpg",
                                 "/snapshot/nobody/left.jpg", "//", "/app.js/", "/index.html"}) {
    EXPECT_THAT(ask("GET "s + path), StartsWith("HTTP/1.1 404")) << path;
  }
  EXPECT_THAT(ask("GET /%00"), StartsWith("HTTP/1.1 400"));
  EXPECT_THAT(ask("GET /%zz"), StartsWith("HTTP/1.1 400"));
  EXPECT_THAT(ask("GET http://127.0.0.1/health"), StartsWith("HTTP/1.1 400"));
  EXPECT_LE(log().size(), 2U);
}

TEST_F(ViewServerTest, LimitsHeaderBodyAndMessage) {
  start();
  EXPECT_THAT(ask("GET /health", "X-Filler: " + std::string(mostHeaderBytes, 'x') + "\r\n"),
              StartsWith("HTTP/1.1 431"));
  EXPECT_THAT(ask("POST /control", "", std::string(mostBodyBytes + 1, 'x')), StartsWith("HTTP/1.1 413"));
  LoopbackClient liar(server->port());
  liar.send("POST /control HTTP/1.1\r\nHost: " + host() + "\r\nContent-Length: 99999999999\r\n\r\n");
  EXPECT_THAT(liar.receiveAll(), StartsWith("HTTP/1.1 413"));
  LoopbackClient noise(server->port());
  noise.send("\x16\x03\x01\x02 not a request\r\n\r\n");
  EXPECT_THAT(noise.receiveAll(), StartsWith("HTTP/1.1 400"));
  auto talker = page("watch front");
  std::string longest = frame(1, "");
  longest[1] = static_cast<char>(0x80 | 126);
  longest.insert(2, {static_cast<char>((mostMessageBytes + 1) >> 8), static_cast<char>((mostMessageBytes + 1) & 255)});
  talker->send(longest + std::string(mostMessageBytes + 1, 'x'));
  EXPECT_EQ(nextPicture(*talker).opcode, 8);
  talker.reset();
  EXPECT_TRUE(test::await([&] { return log().size() == 4; })) << testing::PrintToString(log());
}

TEST_F(ViewServerTest, EndsSocketsThatBreakTheRules) {
  start();
  const std::string watch = frame(1, "watch front left");
  std::string unmasked = watch;
  unmasked[1] = static_cast<char>(unmasked[1] & 0x7F);
  std::string unknownOpcode = watch;
  unknownOpcode[0] = static_cast<char>(0x8B);
  std::string reserved = watch;
  reserved[0] = static_cast<char>(0xF1);
  for (const std::string& bytes :
       {unmasked, unknownOpcode, reserved, frame(1, "watch nobody left"), frame(1, "watch front everything"),
        frame(1, "ack"), frame(1, "ack -1"), frame(1, "hello"), frame(2, "watch front left"), frame(1, ""),
        frame(0, "no beginning")}) {
    LoopbackClient client(server->port());
    client.send(upgrade());
    EXPECT_THAT(client.receiveUntil("\r\n\r\n"), StartsWith("HTTP/1.1 101"));
    client.send(bytes);
    const Frame end = nextPicture(client);
    EXPECT_TRUE(end.opcode == 8 || end.opcode == -1) << testing::PrintToString(bytes);
  }
  EXPECT_LE(log().size(), 3U);
  EXPECT_FALSE(site.front.isWanted(View::left));
}

TEST_F(ViewServerTest, SendsPicturesThatAreWatchedAndAcknowledged) {
  start();
  auto client = page("watch front left,range");
  ASSERT_TRUE(test::await([&] { return site.front.isWanted(View::left) && site.front.isWanted(View::range); }));
  EXPECT_FALSE(site.front.isWanted(View::right));
  EXPECT_FALSE(site.rear.isWanted(View::left));
  site.front.publish(picture(View::right, "unwatched"));
  site.rear.publish(picture(View::left, "other camera"));
  site.front.publish(picture(View::left, "first"));
  const Frame first = nextPicture(*client);
  ASSERT_EQ(first.opcode, 2);
  ASSERT_EQ(first.payload.size(), 32U + 5U);
  EXPECT_EQ(first.payload.substr(32), "first");
  EXPECT_EQ(valueAt<std::uint8_t>(first.payload, 0), 1);
  EXPECT_EQ(valueAt<std::uint8_t>(first.payload, 1), static_cast<int>(View::left));
  EXPECT_EQ(valueAt<std::uint16_t>(first.payload, 2), 0);
  EXPECT_EQ(valueAt<std::uint32_t>(first.payload, 4), 1U);
  EXPECT_EQ(valueAt<double>(first.payload, 8), 1'700'000'000'123'456.0);
  EXPECT_EQ(valueAt<std::uint16_t>(first.payload, 16), 64);
  EXPECT_EQ(valueAt<std::uint16_t>(first.payload, 18), 48);
  EXPECT_GT(valueAt<float>(first.payload, 24), 0.0F);

  // Two may be on their way; then nobody is ready any more, and what is published meanwhile is not for this one.
  site.front.publish(picture(View::left, "second"));
  EXPECT_EQ(nextPicture(*client).payload.substr(32), "second");
  ASSERT_TRUE(test::await([&] { return !site.front.isWanted(View::left); }));
  site.front.publish(picture(View::left, "too early"));
  site.front.publish(picture(View::range, "range"));
  const Frame range = nextPicture(*client);
  EXPECT_EQ(range.payload.substr(32), "range");
  client->send(frame(1, "ack 1"));
  ASSERT_TRUE(test::await([&] { return site.front.isWanted(View::left); }));
  site.front.publish(picture(View::left, "third"));
  EXPECT_EQ(nextPicture(*client).payload.substr(32), "third");

  client->send(frame(1, "watch rear left"));
  ASSERT_TRUE(test::await([&] { return site.rear.isWanted(View::left) && !site.front.isWanted(View::range); }));
  client->send(frame(1, "watch rear"));
  ASSERT_TRUE(test::await([&] { return !site.rear.isWanted(View::left); }));
  EXPECT_THAT(log(), ElementsAre());
}

TEST_F(ViewServerTest, MakesAPictureOnceForAllViewers) {
  start();
  std::list<std::unique_ptr<LoopbackClient>> clients;
  for (int k = 0; k < 4; ++k) {
    clients.push_back(page("watch front left"));
  }
  ASSERT_TRUE(test::await([&] { return ask("GET /metrics").find("viewers 4") != std::string::npos; }));
  ASSERT_TRUE(test::await([&] { return site.front.isWanted(View::left); }));
  // All that have told what they watch get this one picture; the others have told it by the next.
  for (const auto& each : clients) {
    while (nextFrame(*each).opcode != 1) {
    }
  }
  site.front.publish(picture(View::left, "for all"));
  site.front.publish(picture(View::left, "for all"));
  for (const auto& each : clients) {
    EXPECT_EQ(nextPicture(*each).payload.substr(32), "for all");
  }
  // The fifth is one too many.
  LoopbackClient fifth(server->port());
  fifth.send(upgrade());
  fifth.receiveUntil("\r\n\r\n");
  EXPECT_EQ(nextPicture(fifth).opcode, 8);
  clients.clear();
  EXPECT_TRUE(test::await([&] { return !site.front.isWanted(View::left); }));
}

TEST_F(ViewServerTest, StreamsAndServesSinglePictures) {
  start();
  LoopbackClient stream(server->port());
  stream.send("GET /stream/front/left.mjpeg HTTP/1.1\r\nHost: " + host() + "\r\n\r\n");
  EXPECT_THAT(stream.receiveUntil("\r\n\r\n"),
              AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("multipart/x-mixed-replace; boundary=frame")));
  for (const std::string& bytes : {"one"s, "two"s}) {
    ASSERT_TRUE(test::await([&] { return site.front.isWanted(View::left); }));
    site.front.publish(picture(View::left, bytes));
    EXPECT_EQ(stream.receiveUntil("\r\n\r\n"),
              "--frame\r\nContent-Type: image/jpeg\r\nContent-Length: 3\r\nX-Timestamp: 1700000000123456\r\n\r\n");
    EXPECT_EQ(stream.receive(5), bytes + "\r\n");
  }
  LoopbackClient single(server->port());
  single.send("GET /snapshot/rear/raw-left.jpg HTTP/1.1\r\nHost: " + host() + "\r\n\r\n");
  ASSERT_TRUE(test::await([&] { return site.rear.isFullWanted(View::rawLeft); }));
  site.rear.publish(picture(View::rawLeft, "half size"));
  ViewMessage full = picture(View::rawLeft, "full size");
  full.isFull = true;
  site.rear.publish(full);
  EXPECT_THAT(single.receiveAll(), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("image/jpeg"), HasSubstr("full size"),
                                         Not(HasSubstr("half size"))));
  EXPECT_TRUE(test::await([&] { return !site.rear.isWanted(View::rawLeft); }));
}

TEST_F(ViewServerTest, GivesUpWaitingForASinglePicture) {
  start();
  EXPECT_THAT(ask("GET /snapshot/front/left.jpg"), StartsWith("HTTP/1.1 503"));
  EXPECT_FALSE(site.front.isWanted(View::left));
}

TEST_F(ViewServerTest, WithstandsAThousandConnections) {
  start(false, 32);
  auto watcher = page("watch front left");
  ASSERT_TRUE(test::await([&] { return site.front.isWanted(View::left); }));
  std::list<LoopbackClient> crowd;
  // The server is in this process, too, so that half of the descriptors are its own until it has refused.
  for (int k = 0; k < 1000; ++k) {
    crowd.emplace_back(server->port());
    crowd.back().send("GET /hea");  // and no more: a request that never ends
    if (crowd.size() > 300) {
      crowd.pop_front();
    }
  }
  // The one that was there is served all the same.
  site.front.publish(picture(View::left, "still here"));
  EXPECT_EQ(nextPicture(*watcher).payload.substr(32), "still here");
  EXPECT_TRUE(test::await([&] { return server->refusals() >= 300; })) << server->refusals();
  EXPECT_EQ(log().size(), 1U);
  crowd.clear();
  EXPECT_TRUE(test::await([&] { return ask("GET /metrics").rfind("HTTP/1.1 200", 0) == 0; }));
}

TEST_F(ViewServerTest, DropsRequestsThatComeTooSlowly) {
  start();
  LoopbackClient slow(server->port());
  slow.send("GET /health HTTP/1.1\r\n");
  EXPECT_EQ(slow.receiveAll(), "");
  EXPECT_TRUE(test::await([&] { return log().size() == 1; }));
}

TEST_F(ViewServerTest, DropsViewersThatFellSilent) {
  silence = std::chrono::seconds(5);
  start();
  auto silent = page("watch front left");  // neither reads nor answers pings
  LoopbackClient violator(server->port());
  violator.send(upgrade());
  violator.receiveUntil("\r\n\r\n");
  violator.send(frame(11, "no such opcode"));  // is told to go, and stays
  LoopbackClient stream(server->port());
  stream.send("GET /stream/front/left.mjpeg HTTP/1.1\r\nHost: " + host() + "\r\n\r\n");
  ASSERT_TRUE(test::await([&] { return site.front.isWanted(View::left); }));
  // More than a connection's buffers hold.
  const std::string large(8'000'000, 'x');
  ASSERT_TRUE(test::await([&] { return ask("GET /metrics").find("viewers 3") != std::string::npos; }));
  site.front.publish(picture(View::left, large));
  EXPECT_TRUE(test::await([&] { return ask("GET /metrics").find("viewers 0") != std::string::npos; }));
  EXPECT_FALSE(site.front.isWanted(View::left));
}

TEST_F(ViewServerTest, SaysWhyItCannotListen) {
  start();
  ServerOptions options;
  options.port = server->port();
  try {
    const ViewServer second(options, site);
    FAIL() << "two servers on one port";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::output);
    EXPECT_THAT(failure.what(), HasSubstr("cannot listen on 127.0.0.1, port " + std::to_string(server->port())));
  }
  options.address = "nowhere";
  EXPECT_THROW(ViewServer(options, site), Failure);
}

}  // namespace
}  // namespace stereo::app
