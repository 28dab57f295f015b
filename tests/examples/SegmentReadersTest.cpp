// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <sys/shm.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "SimulatedCamera.hpp"
#include "apps/Program.hpp"
#include "support/TempDir.hpp"
#include "support/TestCamera.hpp"

using stereo::sim::SimulatedCamera;
using stereo::test::Program;
using stereo::test::sameBits;
using stereo::test::TempDir;
using stereo::test::TestCamera;
using testing::HasSubstr;

namespace {

const cv::Size frameSize(928, 400);
const cv::Size eyeSize(464, 400);

// A position that no other test process uses: keys are shared by the whole machine.
int ownPosition() {
  static int next = 0;
  return static_cast<int>(getpid()) * 64 + next++;
}

struct Reader {
  const char* name;
  std::vector<std::string> command;
  const char* extension;
};

void PrintTo(const Reader& reader, std::ostream* out) { *out << reader.name; }

class SegmentReaders : public testing::TestWithParam<Reader> {
protected:
  void SetUp() override {
    if (GetParam().command.front().empty()) {
      GTEST_SKIP() << "needs Debian's package python3";
    }
    if (GetParam().command.size() > 1 && Program(GetParam().command.front(), {"-c", "import numpy"}).wait() != 0) {
      GTEST_SKIP() << "needs Debian's package python3-numpy";
    }
  }

  static Program started(const std::vector<std::string>& arguments) {
    std::vector<std::string> all(GetParam().command.begin() + 1, GetParam().command.end());
    all.insert(all.end(), arguments.begin(), arguments.end());
    return Program(GetParam().command.front(), all);
  }

  // A reader of `count` images at a position, writing into the test's folder.
  Program reading(int position, int count) const {
    return started({std::to_string(position + 9000), std::to_string(eyeSize.width), std::to_string(eyeSize.height),
                    std::to_string(count), m_folder.path("left-")});
  }

  cv::Mat taken(int number) const {
    return cv::imread(m_folder.path("left-" + std::to_string(number) + GetParam().extension), cv::IMREAD_UNCHANGED);
  }

  TempDir m_folder;
};

}  // namespace

TEST_P(SegmentReaders, TakeTheLeftEyeOfTheSimulatedCamera) {
  SimulatedCamera::Options options;
  options.frameSize = frameSize;
  options.moving = false;
  options.framesPerPeriod = 1;
  SimulatedCamera camera(options);
  camera.setPosNumber(ownPosition());
  camera.capture().fillRing();
  constexpr int count = 3;
  Program reader = reading(camera.getPosNumber(), count);  // before there is a segment: it waits
  camera.startCapture(false, true);
  cv::Mat left;
  cv::Mat right;
  std::chrono::microseconds stamp{0};
  ASSERT_TRUE(camera.getStereoFrame(left, right, stamp));
  EXPECT_EQ(reader.wait(), 0) << reader.err();
  for (int i = 0; i < count; ++i) {
    EXPECT_TRUE(sameBits(taken(i), left)) << i;
    EXPECT_FALSE(sameBits(taken(i), right)) << i;
  }
}

// Every frame is of one colour, the number of its read: a torn image holds two, and one that was not handed back comes
// again.
TEST_P(SegmentReaders, TakeWholeImagesAndHandEachBack) {
  TestCamera camera([](int read) { return cv::Mat(frameSize, CV_8UC3, cv::Scalar(read & 255, read >> 8 & 255, 1)); });
  camera.setRawFrameSize(frameSize);
  camera.m_fisheyeRadius = 100000;
  camera.setPosNumber(ownPosition());
  camera.startCapture(false, true);
  constexpr int count = 8;
  Program reader = reading(camera.getPosNumber(), count);
  EXPECT_EQ(reader.wait(), 0) << reader.err();
  cv::Vec3b last;
  for (int i = 0; i < count; ++i) {
    const cv::Mat image = taken(i);
    ASSERT_EQ(image.size(), eyeSize) << i;
    const auto colour = image.at<cv::Vec3b>(0, 0);
    EXPECT_TRUE(sameBits(image, cv::Mat(eyeSize, CV_8UC3, cv::Scalar(colour)))) << i;
    EXPECT_EQ(colour[2], 1) << i;
    EXPECT_NE(colour, last) << i;
    last = colour;
  }
}

TEST_P(SegmentReaders, RefuseASegmentThatIsSmaller) {
  const int position = ownPosition();
  const int id = shmget(position + 9000, 4096, IPC_CREAT | 0600);
  ASSERT_NE(id, -1);
  Program reader = reading(position, 1);
  EXPECT_EQ(reader.wait(), 1);
  shmctl(id, IPC_RMID, nullptr);
  EXPECT_THAT(reader.err(), HasSubstr("is the size that of one eye?"));
}

TEST_P(SegmentReaders, TellHowTheyAreUsed) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"9000", "464", "400", "1"}, {"9000", "464", "0", "1", "p"}}) {
    EXPECT_NE(started(arguments).wait(), 0);
  }
  Program reader = started({"9000"});
  EXPECT_EQ(reader.wait(), 2);
  EXPECT_THAT(reader.err(), HasSubstr("KEY WIDTH HEIGHT COUNT PREFIX"));
}

INSTANTIATE_TEST_SUITE_P(Examples, SegmentReaders,
                         testing::Values(Reader{"cpp", {STEREO_CAMERA_READER_CPP}, ".png"},
                                         Reader{"c", {STEREO_CAMERA_READER_C}, ".ppm"},
                                         Reader{"python", {STEREO_CAMERA_PYTHON3, STEREO_CAMERA_READER_PY}, ".ppm"}),
                         [](const auto& each) { return std::string(each.param.name); });
