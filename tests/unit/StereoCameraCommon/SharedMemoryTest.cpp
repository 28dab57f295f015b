// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <string>
#include <thread>

#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/ScriptedCapture.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::test::await;
using stereo::test::fullSize;
using stereo::test::Gate;
using stereo::test::halfSize;
using stereo::test::OutputCapture;
using stereo::test::recordTexts;
using stereo::test::TestCamera;

namespace {

constexpr std::size_t fullBytes = 2227204;
constexpr std::size_t halfBytes = 556804;

// A position that no other test process uses: keys are shared by the whole machine.
int ownPosition() {
  static std::atomic<int> next{0};
  return static_cast<int>(getpid()) * 64 + next++;
}

bool exists(int position) { return shmget(position + 9000, 0, 0) != -1; }

// The segment as another process sees it.
class Peer {
public:
  explicit Peer(int position) : m_id(shmget(position + 9000, 0, 0)), m_address(shmat(m_id, nullptr, 0)) {}
  ~Peer() { shmdt(m_address); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  std::atomic_ref<std::int32_t> status() const {
    return std::atomic_ref<std::int32_t>(*static_cast<std::int32_t*>(m_address));
  }
  shmid_ds about() const {
    shmid_ds result{};
    shmctl(m_id, IPC_STAT, &result);
    return result;
  }
  int pixel(std::size_t offset) const {
    return std::atomic_ref<std::uint8_t>(static_cast<std::uint8_t*>(m_address)[4 + offset]).load();
  }

private:
  int m_id;
  void* m_address;
};

// Frames of one gray value each: the number of the read, from 1 to 255 and round again.
cv::Mat gray(cv::Size size, int read) { return cv::Mat(size, CV_8UC3, cv::Scalar::all(1 + read % 255)); }

struct SharingCamera : TestCamera {
  SharingCamera(cv::Size size, stereo::test::ScriptedCapture::Script script) : TestCamera(std::move(script)) {
    setRawFrameSize(size);
    m_fisheyeRadius = 100000;
    setPosNumber(ownPosition());
  }
};

}  // namespace

TEST(SharedMemory, SegmentHasTheStatedKeySizeAndPermissionsAndIsRemoved) {
  for (const auto& [size, bytes] : {std::pair(fullSize, fullBytes), std::pair(halfSize, halfBytes)}) {
    SharingCamera camera(size, [size = size](int read) { return gray(size, read); });
    camera.startCapture(false, true);
    ASSERT_TRUE(await([&] { return exists(camera.getPosNumber()); }));
    const Peer peer(camera.getPosNumber());
    EXPECT_EQ(peer.about().shm_segsz, bytes);
    EXPECT_EQ(peer.about().shm_perm.mode & 0777U, 0666U);
    EXPECT_TRUE(camera.stopCapture());
    EXPECT_FALSE(exists(camera.getPosNumber()));
  }
}

TEST(SharedMemory, WithoutAConsumerExactlyOneImageIsWritten) {
  SharingCamera camera(halfSize, [](int read) { return gray(halfSize, read); });
  camera.startCapture(false, true);
  ASSERT_TRUE(await([&] { return exists(camera.getPosNumber()); }));
  const Peer peer(camera.getPosNumber());
  ASSERT_TRUE(await([&] { return peer.status() == 2; }));
  // The tenth read is the last of the warm-up; the first frame of the loop is the one that is offered.
  EXPECT_TRUE(await([&] { return peer.pixel(halfBytes - 5) == 11; }));
  EXPECT_TRUE(await([&] { return camera.device().reads() > 60; }));
  EXPECT_EQ(peer.status(), 2);
  EXPECT_EQ(peer.pixel(0), 11);
  EXPECT_EQ(peer.pixel(halfBytes - 5), 11);
  peer.status() = 0;
  EXPECT_TRUE(await([&] { return peer.status() == 2 && peer.pixel(halfBytes - 5) != 11; }));
  camera.stopCapture();
}

TEST(SharedMemory, HoldsTheLeftEyeAfterMasking) {
  SharingCamera camera(halfSize,
                       [](int) { return stereo::test::twoColors(halfSize, cv::Scalar(1, 2, 3), cv::Scalar(4, 5, 6)); });
  camera.setRawFrameSize(halfSize);  // radius 232: the corners are black
  camera.startCapture(false, true);
  ASSERT_TRUE(await([&] { return exists(camera.getPosNumber()); }));
  const Peer peer(camera.getPosNumber());
  // Row 399 has half = floor(sqrt(232^2 - 199^2)) = 119 round column 232.
  const std::size_t row = 399 * 464 * 3;
  ASSERT_TRUE(await([&] { return peer.pixel(row + 351 * 3) == 1; }));
  EXPECT_EQ(peer.pixel(row + 351 * 3 + 1), 2);
  EXPECT_EQ(peer.pixel(row + 351 * 3 + 2), 3);
  EXPECT_EQ(peer.pixel(row + 352 * 3), 0);
  EXPECT_EQ(peer.pixel(row + 112 * 3), 0);
  EXPECT_EQ(peer.pixel(row + 113 * 3), 1);
  EXPECT_EQ(peer.pixel(0), 0);
  camera.stopCapture();
}

// A real second process that follows the handshake and checks every image that it takes.
TEST(SharedMemory, AnotherProcessTakesWholeImagesByTheHandshake) {
  SharingCamera camera(halfSize, [](int read) { return gray(halfSize, read); });
  const int position = camera.getPosNumber();
  const pid_t consumer = fork();
  if (consumer == 0) {
    execl(STEREO_CAMERA_SEGMENT_CONSUMER, "segment_consumer", std::to_string(position + 9000).c_str(),
          std::to_string(halfBytes).c_str(), "50", nullptr);
    _exit(127);
  }
  ASSERT_GT(consumer, 0);
  camera.startCapture(false, true);
  int status = -1;
  EXPECT_EQ(waitpid(consumer, &status, 0), consumer);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  camera.stopCapture();
  EXPECT_FALSE(exists(position));
}

TEST(SharedMemory, KeyComesThroughTheVirtualTable) {
  struct Derived : SharingCamera {
    using SharingCamera::SharingCamera;
    int getPosNumber() const override { return other; }
    int other = ownPosition();
  };
  Derived camera(halfSize, [](int read) { return gray(halfSize, read); });
  camera.startCapture(false, true);
  EXPECT_TRUE(await([&] { return exists(camera.other); }));
  EXPECT_FALSE(exists(camera.m_posNumber));
  camera.stopCapture();
}

TEST(SharedMemory, AFrameThatGrewBeyondTheSegmentIsNotOffered) {
  SharingCamera camera(halfSize, [](int read) { return gray(read < 10 ? halfSize : fullSize, read); });
  camera.startCapture(false, true);
  ASSERT_TRUE(await([&] { return exists(camera.getPosNumber()); }));
  const Peer peer(camera.getPosNumber());
  EXPECT_TRUE(await([&] { return camera.device().reads() > 20; }));
  EXPECT_EQ(peer.status(), 0);
  EXPECT_EQ(camera.getRawFrameSize(), halfSize);
  camera.stopCapture();
}

TEST(SharedMemory, AnImageOfAnotherTypeIsNotOffered) {
  SharingCamera camera(halfSize, [](int) { return cv::Mat(halfSize, CV_16UC3, cv::Scalar::all(7)); });
  camera.startCapture(false, true);
  ASSERT_TRUE(await([&] { return exists(camera.getPosNumber()); }));
  const Peer peer(camera.getPosNumber());
  EXPECT_TRUE(await([&] { return camera.device().reads() > 20; }));
  EXPECT_EQ(peer.status(), 0);
  camera.stopCapture();
}

TEST(SharedMemory, AWorkerThatHasNoSegmentOffersNothingAndReportsAtItsEnd) {
  const OutputCapture err(2);
  Gate gate;
  SharingCamera camera(halfSize, [&](int read) { return read < 11 || gate.pass() ? gray(halfSize, read) : cv::Mat(); });
  camera.startCapture(false, false);
  EXPECT_TRUE(await([&] { return camera.device().reads() > 11; }));
  camera.m_useShareMemory = true;
  gate.open();
  camera.stopCapture();
  EXPECT_FALSE(exists(camera.getPosNumber()));
  const auto texts = recordTexts(err.text());
  ASSERT_EQ(texts.size(), 2U);
  EXPECT_EQ(texts[0], "share memory shmdt failed!\n");
  EXPECT_EQ(texts[1], "Delete share memory error!");
}

TEST(SharedMemory, RemovalThatFailsIsReportedAndTheWorkerEnds) {
  const OutputCapture out(1);
  const OutputCapture err(2);
  SharingCamera camera(halfSize, [](int read) { return gray(halfSize, read); });
  camera.startCapture(false, true);
  ASSERT_TRUE(await([&] { return exists(camera.getPosNumber()); }));
  EXPECT_TRUE(await([&] { return camera.device().reads() > 11; }));
  shmctl(shmget(camera.getPosNumber() + 9000, 0, 0), IPC_RMID, nullptr);
  EXPECT_TRUE(camera.stopCapture());
  // A removed segment stays until the worker detaches; removing it again then fails.
  EXPECT_THAT(recordTexts(err.text()), testing::ElementsAre("Delete share memory error!"));
  EXPECT_EQ(recordTexts(out.text()).back(), "Stop get frame done.\n");
}

// The process ends with status 1 in each of these; only its report says why.

class SharedMemoryDeathTest : public testing::Test {
protected:
  SharedMemoryDeathTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

  static void startAndWait(TestCamera& camera) {
    camera.startCapture(false, true);
    await([] { return false; });
  }
};

TEST_F(SharedMemoryDeathTest, KeyHeldByASmallerSegment) {
  const auto run = [] {
    SharingCamera camera(halfSize, [](int read) { return gray(halfSize, read); });
    static const int held = shmget(camera.getPosNumber() + 9000, 100, IPC_CREAT | 0600);
    std::atexit([] { shmctl(held, IPC_RMID, nullptr); });
    startAndWait(camera);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(1), "\\[StereoCamera\\] share memory alloc create failed!\n");
}

TEST_F(SharedMemoryDeathTest, RawWidthThatIsNotTheCameras) {
  const auto run = [] {
    SharingCamera camera(halfSize, [](int read) { return gray(halfSize, read); });
    camera.m_rawFrameSize = {640, 480};
    startAndWait(camera);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(1), "\\[StereoCamera\\] share memory shmat failed!\n");
}

TEST_F(SharedMemoryDeathTest, SizeThatNoSegmentCanHave) {
  const auto run = [] {
    SharingCamera camera(halfSize, [](int read) { return gray(halfSize, read); });
    camera.m_rawFrameSize = {1856, 1000000};  // the product wraps below zero
    startAndWait(camera);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(1), "\\[StereoCamera\\] share memory alloc create failed!\n");
}
