// SPDX-License-Identifier: Apache-2.0
// Streaming, receiving and sharing as their users see them: processes that talk to each other. Runs only in a network
// of its own (scripts/in-own-network), so that nothing can leave.
#include <csignal>
#include <filesystem>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "apps/stereo-camera/process/Failure.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Program.hpp"
#include "tests/support/StreamReceiver.hpp"
#include "tests/support/TempDir.hpp"

using stereo::app::ExitCode;
using stereo::test::Arguments;
using stereo::test::await;
using stereo::test::operator+;
using stereo::test::Program;
using stereo::test::row;
using stereo::test::TempDir;
using testing::HasSubstr;

namespace {

const cv::Size eyeSize(464, 400);
const Arguments stillCamera{"--size", "928x400", "--still"};  // rectified eyes of 464 x 400

class StreamProgram : public testing::Test {
protected:
  // What the still camera sees, read without the network.
  static void SetUpTestSuite() {
    seenFolder = std::make_unique<TempDir>();
    Program snapshot(STEREO_CAMERA_PROGRAM, Arguments{"snapshot", "-o", seenFolder->path()} + stillCamera);
    ASSERT_EQ(snapshot.wait(), 0) << snapshot.err();
  }
  static void TearDownTestSuite() { seenFolder.reset(); }
  void SetUp() override { ASSERT_TRUE(stereo::test::inOwnNetwork()) << "run this through scripts/in-own-network"; }

  static cv::Mat seen(const std::string& name) { return cv::imread(seenFolder->path(name)); }
  static cv::Mat seen(const std::string& left, const std::string& right) {
    cv::Mat both;
    cv::hconcat(seen(left), seen(right), both);
    return both;
  }

  std::string file(const std::string& name) const { return m_folder.path(name); }

  std::string writePicture(const std::string& name, cv::Size size) const {
    cv::Mat picture(size, CV_8UC3);
    cv::randu(picture, 1, 255);
    EXPECT_TRUE(cv::imwrite(file(name), picture));
    return file(name);
  }

  // A calibration of plausible numbers for a camera at this position.
  std::string writeCalibration(int position) const {
    stereo::test::Document document{{"SerialNumber", row({7})},
                                    {"PositonNumber", row({static_cast<double>(position)})},
                                    {"Translation", row({60, 0, 0}).t()}};
    for (const std::string eye : {"Left", "Right"}) {
      document.emplace_back(eye + "Xi", row({1}));
      document.emplace_back(eye + "IntrinsicMatrix", row({500, 0, 464, 0, 500, 400, 0, 0, 1}).reshape(1, 3));
      document.emplace_back(eye + "DistortionCoefficients", row({0, 0, 0, 0}));
      document.emplace_back(eye + "Rotation", cv::Mat(cv::Mat::eye(3, 3, CV_64F)));
    }
    return stereo::test::writeDocument(file("calibration.yml"), document);
  }

  // One line on standard error in the program's own name.
  static void expectFailure(const Arguments& arguments, ExitCode code, const std::string& message) {
    Program program(STEREO_CAMERA_PROGRAM, arguments);
    EXPECT_EQ(program.wait(), static_cast<int>(code));
    const std::string err = program.err();
    const std::size_t at = err.rfind("stereo-camera: ");
    ASSERT_NE(at, std::string::npos) << err;
    EXPECT_THAT(err.substr(at), HasSubstr(message));
    EXPECT_EQ(err.find('\n', at), err.size() - 1) << err;
  }

  static void expectStops(Program& program, int signal) {
    program.send(signal);
    EXPECT_EQ(program.wait(), 0) << program.err();
  }

  // A receiver that listens already.
  static std::unique_ptr<Program> startReceiver(const Arguments& arguments) {
    auto receiver = std::make_unique<Program>(STEREO_CAMERA_PROGRAM, Arguments{"receive"} + arguments);
    EXPECT_TRUE(await([&] { return receiver->err().find("listening") != std::string::npos; })) << receiver->err();
    return receiver;
  }

private:
  static inline std::unique_ptr<TempDir> seenFolder;
  TempDir m_folder;
};

class StreamProgramMode : public StreamProgram, public testing::WithParamInterface<int> {};

// Keys belong to the whole machine, not to this network: a position that no other test process uses.
int ownPosition() {
  static int next = 0;
  return static_cast<int>(getpid()) * 64 + next++;
}

bool segmentExists(int position) { return shmget(position + 9000, 0, 0) != -1; }

}  // namespace

TEST_P(StreamProgramMode, ArrivesAsTheCameraSeesIt) {
  const int mode = GetParam();
  const auto receiver = startReceiver({"--save", file("got"), "--count", "3", "--patience", "100"});
  Program stream(STEREO_CAMERA_PROGRAM, Arguments{"stream", "--mode", std::to_string(mode)} + stillCamera);
  EXPECT_EQ(receiver->wait(), 0) << receiver->err() << stream.err();
  expectStops(stream, SIGINT);
  EXPECT_THAT(stream.out(), HasSubstr("to 192.168.10.15, port 9200"));
  EXPECT_THAT(stream.out(), HasSubstr("\nstreamed "));
  EXPECT_THAT(stream.out(), testing::Not(HasSubstr("appsrc")));  // the library's word on it
  EXPECT_THAT(stream.err(), HasSubstr("appsrc"));

  const bool isOneEye = mode == 0 || mode == 2;
  const cv::Size size(isOneEye ? eyeSize.width : 2 * eyeSize.width, eyeSize.height);
  EXPECT_THAT(receiver->out(), HasSubstr("received 3 images, the last of " + std::to_string(size.width) + " x 400"));
  const cv::Mat expected = mode == 0   ? seen("right.png")
                           : mode == 1 ? seen("raw.png")
                           : mode == 2 ? seen("perspective-right.png")
                           : mode == 3 ? seen("perspective-left.png", "perspective-right.png")
                                       : seen("perspective-left.png", "depth-colour.png");
  for (const char* const name : {"got/image-00001.png", "got/image-00002.png", "got/image-00003.png"}) {
    const cv::Mat image = cv::imread(file(name));
    ASSERT_EQ(image.size(), size) << name;
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(image, mean, deviation);
    EXPECT_GT(deviation[0], 10) << name << " shows nothing";
    EXPECT_GT(cv::PSNR(image, expected), 28.0) << name;
  }
  EXPECT_FALSE(std::filesystem::exists(file("got/image-00004.png")));
}

INSTANTIATE_TEST_SUITE_P(Modes, StreamProgramMode, testing::Values(0, 1, 2, 3, 4));

TEST_F(StreamProgram, GoesToThePortOfTheCamerasPosition) {
  const auto receiver = startReceiver({"--port", "9203", "--count", "1", "--patience", "100"});
  const auto other = startReceiver({"--patience", "100"});
  Program stream(
      STEREO_CAMERA_PROGRAM,
      Arguments{"stream", "--mode", "1", "--calibration", writeCalibration(5), "--position", "3"} + stillCamera);
  EXPECT_EQ(receiver->wait(), 0) << receiver->err() << stream.err();
  expectStops(stream, SIGTERM);
  EXPECT_THAT(stream.out(), HasSubstr("port 9203;"));
  EXPECT_THAT(stream.out(), HasSubstr("stereo-camera receive --port 9203"));
  EXPECT_THAT(stream.out(), HasSubstr("gst-launch-1.0 udpsrc port=9203 caps="));
  other->send(SIGINT);
  EXPECT_EQ(other->wait(), static_cast<int>(ExitCode::noFrames));
}

TEST_F(StreamProgram, EndsWithItsTimeAndTheReceiverWhenNoMoreComes) {
  // Waits as long for the first image, which an instrumented program takes its time for, as after the last.
#ifdef __SANITIZE_THREAD__
  const auto receiver = startReceiver({"--patience", "60"});
#else
  const auto receiver = startReceiver({"--patience", "10"});
#endif
  Program stream(STEREO_CAMERA_PROGRAM, Arguments{"stream", "--mode", "0", "--seconds", "0.5"} + stillCamera);
  EXPECT_EQ(stream.wait(), 0) << stream.err();
  EXPECT_EQ(receiver->wait(), 0) << receiver->err();
  EXPECT_THAT(receiver->out(), HasSubstr("images, the last of 464 x 400 pixels\n"));
}

TEST_F(StreamProgram, ReceiverWithoutASenderGivesUp) {
  const auto start = std::chrono::steady_clock::now();
  expectFailure({"receive", "--patience", "1"}, ExitCode::noFrames, "no image came on port 9200");
  const auto passed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(passed, std::chrono::seconds(1));
  EXPECT_LT(passed, std::chrono::seconds(30));
}

TEST_F(StreamProgram, ReceiverSaysWhatItCannotHave) {
  const int taken = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(9250);
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  expectFailure({"receive", "--port", "9250"}, ExitCode::source, "port 9250 cannot be opened");
  close(taken);
  stereo::test::writeFile(file("taken"), "a file, not a folder");
  expectFailure({"receive", "--save", file("taken")}, ExitCode::output, "taken");
  Program blind(STEREO_CAMERA_PROGRAM, {"receive", "--show"}, {"DISPLAY", "WAYLAND_DISPLAY"});
  EXPECT_EQ(blind.wait(), static_cast<int>(ExitCode::output));
  EXPECT_THAT(blind.err(), HasSubstr("no display"));
}

TEST_F(StreamProgram, WithoutAnEncoderNothingIsSent) {
  // No plugin at all is to be found, and what the search finds is not remembered for others.
  const Arguments nowhere{"GST_PLUGIN_PATH",
                          "GST_PLUGIN_PATH_1_0",
                          "GST_PLUGIN_SYSTEM_PATH=" + file("none"),
                          "GST_PLUGIN_SYSTEM_PATH_1_0=" + file("none"),
                          "GST_REGISTRY=" + file("registry"),
                          "GST_REGISTRY_1_0=" + file("registry")};
  Program stream(STEREO_CAMERA_PROGRAM, Arguments{"stream", "--mode", "1", "--seconds", "0.2"} + stillCamera, nowhere);
  EXPECT_EQ(stream.wait(), static_cast<int>(ExitCode::output));
  EXPECT_THAT(stream.err(), HasSubstr("stereo-camera: cannot stream: GStreamer has no element"));
  EXPECT_EQ(stream.out(), "");
  Program receiver(STEREO_CAMERA_PROGRAM, {"receive"}, nowhere);
  EXPECT_EQ(receiver.wait(), static_cast<int>(ExitCode::source));
  EXPECT_THAT(receiver.err(), HasSubstr("cannot receive"));
}

TEST_F(StreamProgram, WrongArguments) {
  const std::string picture = writePicture("frame.png", {928, 400});
  for (const char* const mode : {"2", "3", "4"}) {
    expectFailure({"stream", "--mode", mode, "--replay", picture}, ExitCode::calibration, "it needs a calibration");
  }
  for (const Arguments& arguments : {Arguments{"stream"}, Arguments{"stream", "--mode", "5"},
                                     Arguments{"stream", "--mode", "1", "--receiver", "255"},
                                     Arguments{"receive", "--port", "0"}, Arguments{"share", "--seconds", "-1"}}) {
    Program program(STEREO_CAMERA_PROGRAM, arguments);
    EXPECT_EQ(program.wait(), static_cast<int>(ExitCode::usage)) << testing::PrintToString(arguments);
  }
}

TEST_F(StreamProgram, EndsWithAMessageWhenFramesStop) {
  stereo::test::writeFile(file("gone"), "unplug 15 ever\n");
  for (const Arguments& command :
       {Arguments{"stream", "--mode", "1"}, Arguments{"share", "--calibration", writeCalibration(ownPosition())}}) {
    expectFailure(command + stillCamera + Arguments{"--simulate", "--faults", file("gone"), "--patience", "1"},
                  ExitCode::noFrames, "no frame for 1000 ms");
  }
}

TEST_F(StreamProgram, EndsWithTheRecording) {
  std::filesystem::create_directory(file("pictures"));
  for (const char* const name : {"pictures/1.png", "pictures/2.png", "pictures/3.png"}) {
    writePicture(name, {928, 400});
  }
  for (const Arguments& command :
       {Arguments{"stream", "--mode", "1"}, Arguments{"share", "--calibration", writeCalibration(ownPosition())}}) {
    Program program(STEREO_CAMERA_PROGRAM,
                    command + Arguments{"--replay", file("pictures"), "--once", "--patience", "120"});
    EXPECT_EQ(program.wait(), 0) << program.err();
    EXPECT_THAT(program.out(), testing::ContainsRegex("(streamed|shared for) [1-3] (images|frames)"));
  }
}

TEST_F(StreamProgram, ShareGivesTheLeftEyeToAnotherProcess) {
  const int position = ownPosition();
  const std::string key = std::to_string(position + 9000);
  Program share(STEREO_CAMERA_PROGRAM, Arguments{"share", "--calibration", writeCalibration(position)} + stillCamera);
  ASSERT_TRUE(await([&] { return share.out().find("sharing") != std::string::npos; })) << share.err();
  EXPECT_THAT(share.out(), HasSubstr("key " + key + ", images of 464 x 400 pixels, segment of 556804 bytes\n"));
  Program reader(SEGMENT_READER_PROGRAM, {key, "464", "400", "3", file("left-")});
  EXPECT_EQ(reader.wait(), 0) << reader.err();
  EXPECT_EQ(reader.out(), file("left-0.png") + "\n" + file("left-1.png") + "\n" + file("left-2.png") + "\n");
  for (const char* const name : {"left-0.png", "left-1.png", "left-2.png"}) {
    const cv::Mat image = cv::imread(file(name));
    ASSERT_EQ(image.size(), eyeSize);
    EXPECT_EQ(cv::norm(image, seen("left.png"), cv::NORM_INF), 0) << name;
  }
  Program greedy(SEGMENT_READER_PROGRAM, {key, "928", "800", "1", file("left-")});
  EXPECT_EQ(greedy.wait(), 1);
  EXPECT_EQ(greedy.err(),
            "segment_reader: the segment holds 556804 bytes, not 2227204: is the size that of one eye?\n");
  EXPECT_TRUE(segmentExists(position));
  expectStops(share, SIGTERM);
  EXPECT_FALSE(segmentExists(position));
}

TEST_F(StreamProgram, ShareTakesItsSegmentAwayWhateverSignalEndsIt) {
  for (const int signal : {SIGINT, SIGHUP, SIGPIPE}) {
    const int position = ownPosition();
    Program share(STEREO_CAMERA_PROGRAM, Arguments{"share", "--calibration", writeCalibration(position)} + stillCamera);
    ASSERT_TRUE(await([&] { return share.out().find("sharing") != std::string::npos; })) << share.err();
    EXPECT_TRUE(segmentExists(position));
    expectStops(share, signal);
    EXPECT_FALSE(segmentExists(position)) << signal;
  }
}

TEST_F(StreamProgram, ShareLeavesTheSegmentOfAnotherAlone) {
  const int position = ownPosition();
  const Arguments arguments = Arguments{"share", "--calibration", writeCalibration(position)} + stillCamera;
  Program share(STEREO_CAMERA_PROGRAM, arguments);
  ASSERT_TRUE(await([&] { return share.out().find("sharing") != std::string::npos; })) << share.err();
  expectFailure(arguments, ExitCode::output, "the key " + std::to_string(position + 9000) + " is in use: process ");
  EXPECT_TRUE(segmentExists(position));
  // Killed, it leaves a segment that the next one takes over.
  share.send(SIGKILL);
  share.wait();
  EXPECT_TRUE(segmentExists(position));
  Program next(STEREO_CAMERA_PROGRAM, arguments);
  ASSERT_TRUE(await([&] { return next.out().find("sharing") != std::string::npos; })) << next.err();
  expectStops(next, SIGTERM);
  EXPECT_FALSE(segmentExists(position));
}

TEST_F(StreamProgram, ShareRefusesWhatWouldEndItsProcess) {
  expectFailure({"share", "--replay", writePicture("frame.png", {640, 240})}, ExitCode::usage, "these are 640 x 240");
  const int position = ownPosition();
  const int small = shmget(position + 9000, 100, IPC_CREAT | IPC_EXCL | 0600);
  ASSERT_NE(small, -1);
  expectFailure(Arguments{"share", "--calibration", writeCalibration(position)} + stillCamera, ExitCode::output,
                "a smaller segment holds the key " + std::to_string(position + 9000));
  shmctl(small, IPC_RMID, nullptr);
}

TEST_F(StreamProgram, SegmentReaderSaysWhatIsMissing) {
  Program unknown(SEGMENT_READER_PROGRAM, {"9000"});
  EXPECT_EQ(unknown.wait(), 2);
  Program wrong(SEGMENT_READER_PROGRAM, {"9000", "464x400", "400", "1", file("left-")});
  EXPECT_EQ(wrong.wait(), 1);
  EXPECT_THAT(wrong.err(), HasSubstr("'464x400' is not a number"));
  const std::string key = std::to_string(ownPosition() + 9000);
  Program early(SEGMENT_READER_PROGRAM, {key, "464", "400", "1", file("left-")});
  EXPECT_EQ(early.wait(), 1);
  EXPECT_EQ(early.err(), "segment_reader: no segment with the key " + key +
                             ": does the camera run, with shared memory, at this position?\n");
}

TEST_F(StreamProgram, SegmentReaderSaysThatNoImageComes) {
  const int position = ownPosition();
  const int idle = shmget(position + 9000, 556804, IPC_CREAT | IPC_EXCL | 0600);
  ASSERT_NE(idle, -1);
  Program reader(SEGMENT_READER_PROGRAM, {std::to_string(position + 9000), "464", "400", "1", file("left-")});
  EXPECT_EQ(reader.wait(), 1);
  shmctl(idle, IPC_RMID, nullptr);
  EXPECT_EQ(reader.err(), "segment_reader: no image for 10 s: the camera was stopped, or delivers no frames\n");
}
