// SPDX-License-Identifier: Apache-2.0
// The network stream, end to end. Runs only in a network of its own (scripts/in-own-network), so that nothing can
// leave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/StreamReceiver.hpp"
#include "tests/support/TestCamera.hpp"

using std::chrono::microseconds;
using stereo::test::await;
using stereo::test::calibrate;
using stereo::test::OutputCapture;
using stereo::test::PacketCounter;
using stereo::test::sameBits;
using stereo::test::StreamReceiver;
using stereo::test::TestCamera;
using testing::HasSubstr;
using testing::Not;

namespace {

const cv::Size rawSize(640, 240);
const cv::Size rectSize(192, 160);
constexpr int images = 25;

// Soft blobs that differ in every frame: they survive the encoder, and frames can be told apart.
cv::Mat picture(int number) {
  cv::Mat coarse(6, 16, CV_8UC3);
  cv::RNG random(static_cast<std::uint64_t>(number) + 1);
  random.fill(coarse, cv::RNG::UNIFORM, 0, 256);
  cv::Mat fine;
  cv::resize(coarse, fine, rawSize, 0, 0, cv::INTER_CUBIC);
  return fine;
}

struct StreamingCamera : TestCamera {
  // With `still`, every frame is the same.
  StreamingCamera(int mode, int position, bool still = false)
      : TestCamera([still](int read) { return picture(still ? 7 : read); }) {
    calibrate(*this);
    for (cv::Mat* const intrinsic : {&m_leftIntrinsic, &m_rightIntrinsic}) {
      intrinsic->at<double>(1, 2) = 348;  // the middle of 240 rows, once scaled to 640 columns
    }
    m_rawFrameSize = rawSize;
    m_rectFrameSize = rectSize;
    m_fisheyeRadius = 10000;
    m_transmode = mode;
    m_transrate = 30;
    m_depthmode = 2;
    m_algorithm = 1;
    m_maxDepth = 100;
    setPosNumber(position);
  }
  ~StreamingCamera() override {
    stopStereoCompute();
    stopCapture();
  }
};

cv::Mat joined(const cv::Mat& left, const cv::Mat& right) {
  cv::Mat both;
  cv::hconcat(left, right, both);
  return both;
}

// One read of the operation that a mode streams; returns what must arrive.
cv::Mat readForMode(int mode, StreamingCamera& camera) {
  cv::Mat a;
  cv::Mat b;
  microseconds timestamp{0};
  if (mode < 2) {
    EXPECT_TRUE(camera.getRawFrame(a, timestamp));
    return mode == 0 ? a.colRange(a.cols / 2, a.cols).clone() : a;
  }
  if (mode < 4) {
    EXPECT_TRUE(camera.getRectStereoFrame(a, b));
    return mode == 2 ? b : joined(a, b);
  }
  while (!camera.getDepthFrame(b, true, timestamp)) {
    // No disparity yet, and so nothing sent either.
  }
  const std::lock_guard lock(camera.m_disparityMutex);
  return joined(camera.m_disparityFrame.first, b);
}

class Stream : public testing::Test {
protected:
  void SetUp() override { ASSERT_TRUE(stereo::test::inOwnNetwork()) << "run this through scripts/in-own-network"; }
};

class StreamOfMode : public Stream, public testing::WithParamInterface<int> {};

}  // namespace

TEST_P(StreamOfMode, IsWhatTheClientRead) {
  const int mode = GetParam();
  // The rate does not matter here; a port of its own does.
  const int position = 10 + mode;
  StreamReceiver receiver(9200 + position);
  std::vector<cv::Mat> sent;
  {
    StreamingCamera camera(mode, position, mode == 4);
    camera.startCapture(true, false);
    if (mode == 4) {
      camera.startStereoCompute();
    }
    // The writer is opened after the start's pause; what is read before is not streamed. The first published frame
    // comes after the opening.
    for (int i = 0; i < images; ++i) {
      sent.push_back(readForMode(mode, camera));
    }
    EXPECT_TRUE(await([&] { return receiver.count() >= sent.size(); })) << receiver.count();
  }
  const std::vector<cv::Mat> received = receiver.frames();
  ASSERT_EQ(received.size(), sent.size());
  for (std::size_t k = 0; k < sent.size(); ++k) {
    ASSERT_EQ(received[k].size(), sent[k].size());
    EXPECT_GT(cv::PSNR(received[k], sent[k]), 30.0) << k;
    if (mode != 4 && k > 0) {
      EXPECT_LT(cv::PSNR(received[k], sent[k - 1]), 25.0) << "order does not show at " << k;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, StreamOfMode, testing::Values(0, 1, 2, 3, 4));

TEST_F(Stream, SaysOnStandardOutputWhereItGoes) {
  const OutputCapture out(1);
  {
    StreamingCamera camera(0, 2);
    camera.m_ipLastSegment = 7;
    camera.startCapture(true, false);
    cv::Mat frame;
    microseconds timestamp{0};
    EXPECT_TRUE(camera.getRawFrame(frame, timestamp));
  }
  EXPECT_THAT(out.text(), HasSubstr("\nhostIp+portString:host=192.168.10.7 port=9202\n"
                                    "appsrc ! videoconvert ! omxh264enc ! video/x-h264, stream-format=byte-stream ! "
                                    "rtph264pay ! udpsink host=192.168.10.7 port=9202\n"));
}

TEST_F(Stream, AModeThatDoesNotExistSaysSoButOpensNothing) {
  for (const int mode : {5, 77, -2}) {
    const OutputCapture out(1);
    StreamingCamera camera(mode, 3);
    camera.startCapture(true, false);
    cv::Mat frame;
    microseconds timestamp{0};
    EXPECT_TRUE(camera.getRawFrame(frame, timestamp));
    EXPECT_THAT(out.text(), HasSubstr("hostIp+portString:host=192.168.10.15 port=9203\n"));
    EXPECT_FALSE(camera.m_videoWriter.isOpened());
  }
}

TEST_F(Stream, PortComesThroughTheVirtualTable) {
  struct Derived : StreamingCamera {
    using StreamingCamera::StreamingCamera;
    int getPosNumber() const override { return 41; }
    ~Derived() override { stopCapture(); }
  };
  const OutputCapture out(1);
  Derived camera(7, 3);
  camera.startCapture(true, false);
  EXPECT_TRUE(await([&] { return out.text().find("port=9241\n") != std::string::npos; }));
}

TEST_F(Stream, WithoutModeOrRequestThereIsNoneAndNothingIsSaid) {
  for (const bool requested : {true, false}) {
    PacketCounter packets(9220);
    const OutputCapture out(1);
    StreamingCamera camera(requested ? -1 : 1, 20);
    camera.startCapture(requested, false);
    for (int i = 0; i < 10; ++i) {
      readForMode(1, camera);
      readForMode(3, camera);
    }
    EXPECT_FALSE(camera.m_videoWriter.isOpened());
    EXPECT_THAT(out.text(), Not(HasSubstr("hostIp")));
    camera.stopCapture();
    EXPECT_EQ(packets.count(), 0);
  }
}

TEST_F(Stream, OfDepthNeedsDepthModeTwo) {
  PacketCounter packets(9221);
  StreamingCamera camera(4, 21, true);
  camera.m_depthmode = 1;
  camera.startCapture(true, false);
  camera.startStereoCompute();
  for (int i = 0; i < 10; ++i) {
    readForMode(4, camera);
    readForMode(1, camera);
    readForMode(3, camera);
  }
  EXPECT_TRUE(camera.m_videoWriter.isOpened());
  camera.stopStereoCompute();
  camera.stopCapture();
  EXPECT_EQ(packets.count(), 0);
}

TEST_F(Stream, OperationsOfOtherModesSendNothing) {
  PacketCounter packets(9222);
  StreamingCamera camera(2, 22);
  camera.startCapture(true, false);
  for (int i = 0; i < 10; ++i) {
    readForMode(1, camera);
    cv::Mat left;
    cv::Mat right;
    cv::Mat view;
    microseconds timestamp{0};
    EXPECT_TRUE(camera.getStereoFrame(left, right, timestamp));
    EXPECT_TRUE(camera.getRectStereoFrame(left, right, view, timestamp));
  }
  EXPECT_TRUE(camera.m_videoWriter.isOpened());
  camera.stopCapture();
  EXPECT_EQ(packets.count(), 0);
}

TEST_F(Stream, StaysOpenAfterTheStopAndIsReplacedByAnotherStart) {
  StreamingCamera camera(1, 23);
  camera.startCapture(true, false);
  readForMode(1, camera);
  camera.stopCapture();
  EXPECT_TRUE(camera.m_videoWriter.isOpened());
}

// It would be resolved as a host name, and the pictures would go wherever the answer says. GStreamer never sees it.
TEST_F(Stream, WithoutAnAddressIsToldButNotOpened) {
  for (const int octet : {-1, 256, 300}) {
    StreamingCamera camera(1, 26);
    camera.m_ipLastSegment = octet;
    const stereo::test::OutputCapture output(1);
    const stereo::test::OutputCapture errors(2);
    camera.startCapture(true, false);
    readForMode(1, camera);
    camera.stopCapture();
    EXPECT_FALSE(camera.m_videoWriter.isOpened());
    EXPECT_NE(output.text().find("host=192.168.10." + std::to_string(octet) + " port=9226"), std::string::npos);
    EXPECT_EQ(errors.text().find("GStreamer"), std::string::npos) << errors.text();
  }
}

// Reads give the same with and without a stream, whatever happens to it.
TEST_F(Stream, ThatReachesNobodyChangesNoRead) {
  StreamingCamera unreachable(1, 24, true);
  unreachable.m_ipLastSegment = 99;  // no such address in this network
  StreamingCamera plain(-1, 25, true);
  unreachable.startCapture(true, false);
  plain.startCapture(false, false);
  for (int i = 0; i < images; ++i) {
    EXPECT_TRUE(sameBits(readForMode(1, unreachable), readForMode(1, plain)));
    EXPECT_TRUE(sameBits(readForMode(3, unreachable), readForMode(3, plain)));
  }
}

// Run without the plugin's folder on GStreamer's path.
TEST_F(Stream, WithoutAnEncoderChangesNoRead) {
  if (std::getenv("GST_PLUGIN_PATH") != nullptr) {
    GTEST_SKIP() << "the encoder is there: this one runs by itself, without GST_PLUGIN_PATH";
  }
  for (const int mode : {0, 1, 2, 3, 4}) {
    PacketCounter packets(9230 + mode);
    StreamingCamera broken(mode, 30 + mode, true);
    StreamingCamera plain(-1, 40, true);
    broken.startCapture(true, false);
    plain.startCapture(false, false);
    if (mode == 4) {
      broken.startStereoCompute();
      plain.startStereoCompute();
    }
    for (int i = 0; i < 5; ++i) {
      EXPECT_TRUE(sameBits(readForMode(mode, broken), readForMode(mode, plain)));
    }
    EXPECT_FALSE(broken.m_videoWriter.isOpened());
    EXPECT_EQ(packets.count(), 0);
  }
}
