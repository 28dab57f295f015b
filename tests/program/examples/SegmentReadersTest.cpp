// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <sys/shm.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "sim/SimulatedCamera.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/Program.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::sim::SimulatedCamera;
using stereo::test::await;
using stereo::test::Program;
using stereo::test::sameBits;
using stereo::test::TempDir;
using testing::HasSubstr;

namespace {

cv::Size frameSize() { return {928, 400}; }
cv::Size eyeSize() { return {464, 400}; }

// A position that no other test process uses: keys are shared by the whole machine.
int ownPosition() {
  static int next = 0;
  return static_cast<int>(getpid()) * 64 + next++;
}

// A segment as a camera makes it, mapped and removed with this.
class OwnSegment {
public:
  OwnSegment(int key, cv::Size size)
      : m_id(shmget(key, static_cast<std::size_t>(size.area()) * 3 + 4, IPC_CREAT | 0600)),
        m_address(shmat(m_id, nullptr, 0)) {
    if (m_address == reinterpret_cast<void*>(-1)) {  // NOLINT(performance-no-int-to-ptr): the system's failure value
      throw std::system_error(errno, std::generic_category(), "no segment could be had");
    }
  }
  ~OwnSegment() {
    shmdt(m_address);
    shmctl(m_id, IPC_RMID, nullptr);
  }
  OwnSegment(const OwnSegment&) = delete;
  OwnSegment& operator=(const OwnSegment&) = delete;
  std::atomic_ref<std::int32_t> status() const {
    return std::atomic_ref<std::int32_t>(*static_cast<std::int32_t*>(m_address));
  }
  std::atomic_ref<std::uint8_t> pixel(std::size_t offset) const {
    return std::atomic_ref<std::uint8_t>(static_cast<std::uint8_t*>(m_address)[4 + offset]);
  }

private:
  int m_id;
  void* m_address;
};

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
    return started({std::to_string(position + 9000), std::to_string(eyeSize().width), std::to_string(eyeSize().height),
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
  options.frameSize = frameSize();
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
  std::chrono::microseconds timestamp{0};
  ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
  EXPECT_EQ(reader.wait(), 0) << reader.err();
  // The first may be half of nothing where this process is held up in the middle of its copy: no reader can tell.
  for (int i = 1; i < count; ++i) {
    EXPECT_TRUE(sameBits(taken(i), left)) << i;
    EXPECT_FALSE(sameBits(taken(i), right)) << i;
  }
}

// The test plays a camera whose copying takes long: it goes on changing marked pixels for a while and then leaves them
// alone. A reader may take only what rests, and each image once.
TEST_P(SegmentReaders, TakeWhatRestsAndHandEachBack) {
  using Clock = std::chrono::steady_clock;
  constexpr auto copying = std::chrono::milliseconds(16);    // several of a reader's pauses
  constexpr auto longestGap = std::chrono::milliseconds(4);  // below a reader's pause between two looks
  constexpr int count = 30;
  const int position = ownPosition();
  OwnSegment segment(position + 9000, eyeSize());
  Program reader = reading(position, count);
  bool steady[count] = {};
  for (int i = 0; i < count; ++i) {
    ASSERT_TRUE(await([&] { return segment.status() == 0; })) << "image " << i << " is not handed back";
    segment.status() = 2;
    const auto begin = Clock::now();
    auto last = begin;
    steady[i] = true;
    for (unsigned change = 1; last - begin < copying; ++change) {
      std::this_thread::sleep_for(
          std::chrono::microseconds(300));  // who sleeps is woken in time on a busy machine, too
      segment.pixel(0) = static_cast<std::uint8_t>(100 + change % 100);
      const auto now = Clock::now();
      steady[i] = steady[i] && now - last < longestGap;  // held up for longer, the image seemed to rest
      last = now;
    }
    segment.pixel(0) = static_cast<std::uint8_t>(i);
    steady[i] = steady[i] && Clock::now() - last < longestGap;
  }
  EXPECT_EQ(reader.wait(), 0) << reader.err();
  int judged = 0;
  for (int i = 0; i < count; ++i) {
    cv::Mat expected(eyeSize(), CV_8UC3, cv::Scalar::all(0));
    expected.at<cv::Vec3b>(0, 0)[0] = static_cast<std::uint8_t>(i);
    if (steady[i]) {
      EXPECT_TRUE(sameBits(taken(i), expected)) << i;
      ++judged;
    }
  }

  if (judged == 0) {
    GTEST_SKIP() << "this machine is so busy that nothing goes on for " << copying.count() << " ms at a time";
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
