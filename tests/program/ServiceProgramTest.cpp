// SPDX-License-Identifier: Apache-2.0
// The commands view and serve, as processes.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>

#include <sys/shm.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/stereo-camera/process/Failure.hpp"
#include "model/CameraFacts.hpp"
#include "sources/Recording.hpp"
#include "tests/support/LoopbackClient.hpp"
#include "tests/support/Program.hpp"

using stereo::app::ExitCode;
using stereo::test::Arguments;
using stereo::test::await;
using stereo::test::deadline;
using stereo::test::LoopbackClient;
using stereo::test::Program;
using stereo::test::TempDir;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

namespace fs = std::filesystem;

const std::string smallCamera =
    "simulate = true\nstill = true\nsize = \"928x400\"\nrectified = \"232x200\"\nwide-size = \"64x64\"\n";

class Service : public testing::Test {
protected:
  std::string file(const std::string& name) const { return m_folder.path(name); }

  Program& start(const Arguments& arguments) {
    m_program = std::make_unique<Program>(STEREO_CAMERA_PROGRAM, arguments);
    EXPECT_TRUE(await([&] { return m_program->out().find('\n') != std::string::npos; }, 2 * deadline))
        << m_program->err();
    return *m_program;
  }

  Program& serve(const std::string& configuration) {
    stereo::test::writeFile(file("serve.toml"), configuration);
    return start({"serve", "--config", file("serve.toml")});
  }

  std::uint16_t port() const {
    const std::string out = m_program->out();
    const std::string before = "http://127.0.0.1:";
    return static_cast<std::uint16_t>(std::stoi(out.substr(out.find(before) + before.size())));
  }

  std::string token() const {
    const std::string out = m_program->out();
    return out.substr(out.find("#token=") + 7, 32);
  }

  std::string ask(const std::string& request, const std::string& headers = "", const std::string& body = "") const {
    LoopbackClient client(port());
    client.send(request + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" + headers +
                "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    return client.receiveAll();
  }

  bool awaitHealth(const std::string& text) const {
    return await([&] { return ask("GET /health").find(text) != std::string::npos; }, 2 * deadline);
  }

  void expectEndWithin(std::chrono::seconds time, int signal) {
    const auto begin = std::chrono::steady_clock::now();
    m_program->send(signal);
    EXPECT_EQ(m_program->wait(), 0) << m_program->err();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, time);
  }

  void expectRefusal(const std::string& configuration, const std::string& reason) {
    stereo::test::writeFile(file("serve.toml"), configuration);
    const auto outcome = stereo::test::run(STEREO_CAMERA_PROGRAM, {"serve", "--config", file("serve.toml")});
    EXPECT_EQ(outcome.code, static_cast<int>(ExitCode::usage)) << configuration;
    EXPECT_THAT(outcome.err, HasSubstr(reason)) << configuration;
  }

private:
  const TempDir m_folder;
  std::unique_ptr<Program> m_program;
};

}  // namespace

TEST_F(Service, ViewsACameraUntilCtrlC) {
  Program& program = start({"view", "--simulate", "--still", "--size", "928x400", "--port", "0"});
  EXPECT_THAT(program.out(), testing::MatchesRegex("view: http://127.0.0.1:[0-9]+/#token=[0-9a-f]+\n"));
  EXPECT_THAT(ask("GET /"), StartsWith("HTTP/1.1 200"));
  ASSERT_TRUE(awaitHealth("HTTP/1.1 200"));
  EXPECT_THAT(ask("GET /snapshot/camera/left.jpg"), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("\xFF\xD8\xFF")));
  EXPECT_THAT(ask("GET /metrics"), HasSubstr("stereo_camera_up{camera=\"camera\"} 1\n"));
  expectEndWithin(std::chrono::seconds(3), SIGINT);
}

TEST_F(Service, DoesWhatAPageAsksFor) {
  start({"view", "--simulate", "--still", "--size", "928x400", "--rectified", "232x200", "--wide-size", "64x64",
         "--port", "0", "--recordings", file("recordings"), "--snapshots", file("snapshots")});
  ASSERT_TRUE(awaitHealth("HTTP/1.1 200"));
  const std::string bearer = "Authorization: Bearer " + token() + "\r\n";
  const auto control = [&](const std::string& form) { return ask("POST /control", bearer, "camera=camera&" + form); };
  EXPECT_THAT(control("action=wide&nearest=0.5&farthest=4&fuse=1"), StartsWith("HTTP/1.1 200"));
  EXPECT_THAT(ask("GET /health"), AllOf(HasSubstr("\"nearest\": 0.5"), HasSubstr("\"fuse\": true")));
  for (const char* const bad : {"action=wide&nearest=5", "action=wide&nearest=nan", "action=wide&fuse=2",
                                "action=wide&size=1", "action=record", "action=record&on=2", "action=dance", ""}) {
    EXPECT_THAT(control(bad), StartsWith("HTTP/1.1 400")) << bad;
  }
  EXPECT_THAT(ask("POST /control", bearer, "camera=other&action=check"), StartsWith("HTTP/1.1 404"));
  EXPECT_THAT(control("action=record&on=1"), StartsWith("HTTP/1.1 200"));
  ASSERT_TRUE(awaitHealth("\"on\": true"));
  EXPECT_THAT(control("action=snapshot"), StartsWith("HTTP/1.1 200"));
  ASSERT_TRUE(awaitHealth(file("snapshots") + "/camera-"));
  expectEndWithin(std::chrono::seconds(3), SIGTERM);
  // The recording that was under way is complete.
  ASSERT_FALSE(fs::is_empty(file("recordings")));
  EXPECT_GT(stereo::sources::Recording::open(fs::directory_iterator(file("recordings"))->path()).timestamps.size(), 0U);
}

TEST_F(Service, RunsSeveralCamerasAsConfigured) {
  // From the process id, so that tests may run beside each other.
  const int position = 300 + getpid() % 300;
  Program& program = serve("port = 0\ntoken-file = \"" + file("token") + "\"\n\n[front]\n" + smallCamera +
                           "share = true\nposition = " + std::to_string(position) + "\nring = \"" + file("ring") +
                           "\"\nring-part = 1\nkeep-free = 0\n\n[rear]\n" + smallCamera +
                           "seed = 2\n\n[absent]\ndevice = \"/dev/video98\"\n");
  ASSERT_TRUE(awaitHealth("there is no /dev/video98"));
  ASSERT_TRUE(await([&] {
    const std::string health = ask("GET /health");
    return health.find("\"state\": \"running\"") != health.rfind("\"state\": \"running\"");
  })) << ask("GET /health");
  const std::string health = ask("GET /health");
  EXPECT_THAT(health,
              AllOf(StartsWith("HTTP/1.1 503"), HasSubstr("simulated camera, seed 1"),
                    HasSubstr("simulated camera, seed 2"), HasSubstr("\"key\": " + std::to_string(9000 + position))));
  EXPECT_NE(shmget(stereo::model::firstSegmentKey + position, 0, 0), -1);
  EXPECT_EQ(stereo::test::readFile(file("token")), token() + "\n");

  program.send(SIGHUP);
  EXPECT_TRUE(await([&] {
    return program.err().find("rear: settings and calibration are loaded again") != std::string::npos;
  })) << program.err();
  ASSERT_TRUE(
      await([&] { return std::distance(fs::directory_iterator(file("ring")), fs::directory_iterator()) >= 2; }));
  expectEndWithin(std::chrono::seconds(3), SIGTERM);
  EXPECT_EQ(shmget(stereo::model::firstSegmentKey + position, 0, 0), -1);
  for (const auto& part : fs::directory_iterator(file("ring"))) {
    EXPECT_GT(stereo::sources::Recording::open(part.path()).timestamps.size(), 0U) << part.path();
  }
  // The next time the token is the same, and is not shown.
  EXPECT_THAT(serve("port = 0\ntoken-file = \"" + file("token") + "\"\n[front]\n" + smallCamera).out(),
              HasSubstr("(the token is in " + file("token") + ")"));
  expectEndWithin(std::chrono::seconds(3), SIGTERM);
}

TEST_F(Service, RunsWithoutAView) {
  stereo::test::writeFile(file("serve.toml"), "view = false\n[front]\n" + smallCamera + "ring = \"" + file("ring") +
                                                  "\"\nring-part = 1\nkeep-free = 0\n");
  Program program(STEREO_CAMERA_PROGRAM, {"serve", "--config", file("serve.toml")});
  EXPECT_TRUE(await([&] { return fs::exists(file("ring")) && !fs::is_empty(file("ring")); }, 2 * deadline))
      << program.err();
  program.send(SIGTERM);
  EXPECT_EQ(program.wait(), 0);
  EXPECT_EQ(program.out(), "");
}

TEST_F(Service, SaysWhatIsWrongWithAConfiguration) {
  expectRefusal("", "has no section, so no camera");
  expectRefusal("port = 0\n", "has no section, so no camera");
  expectRefusal("prot = 0\n[front]\nsimulate = true\n", "there is no option 'prot'");
  expectRefusal("port = 99999\n[front]\nsimulate = true\n", "port");
  expectRefusal("listen = \"nowhere\"\n[front]\nsimulate = true\n", "is not an address");
  expectRefusal("view = maybe\n[front]\nsimulate = true\n", "view is true or false, not 'maybe'");
  expectRefusal("[front]\nsize = \"928x400\"\n", "[front]: name a source");
  expectRefusal("[front]\nsimulate = true\nhelp = true\n", "there is no option 'help'");
  expectRefusal("[front]\nsimulate = maybe\n", "simulate is true or false, not 'maybe'");
  expectRefusal("[front]\nsimulate = true\nsize = \"wide\"\n", "'wide' is not a size");
  expectRefusal("[front]\nsimulate = true\nring-size = \"huge\"\n", "[front]");
  expectRefusal("[front]\nsimulate = true\ndevice = \"0\"\n", "[front]");
  expectRefusal("[fr ont]\nsimulate = true\n", "a section's name");
  expectRefusal("[front]\nsimulate = true\n[front.sub]\nseed = 1\n", "a section's name");
  expectRefusal("[a]\nsimulate=true\nshare=true\nposition=1\n[b]\nsimulate=true\nshare=true\nposition=1\n",
                "position 1, too");
  expectRefusal("[a]\nsimulate=true\nshare=true\n[b]\nsimulate=true\nstream=0\n", "give each a position");
  expectRefusal("[a]\ndevice = \"nonsense\"\n", "is neither N nor a path");
  expectRefusal("[a]\nsimulate=true\nring=\"r\"\n[b]\nsimulate=true\nring=\"r\"\n", "another camera records to r, too");
  const auto missing = stereo::test::run(STEREO_CAMERA_PROGRAM, {"serve", "--config", file("none.toml")});
  EXPECT_EQ(missing.code, static_cast<int>(ExitCode::usage));
  EXPECT_THAT(missing.err, HasSubstr("cannot read the configuration"));
}
