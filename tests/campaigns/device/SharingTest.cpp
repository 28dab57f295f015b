// SPDX-License-Identifier: Apache-2.0
// What leaves a camera on a video device beside its readers: the left eye through shared memory, both over the network.
#include <chrono>
#include <cstdio>
#include <stdexcept>

#include <sys/shm.h>

#include <gtest/gtest.h>

#include "tests/campaigns/device/Guest.hpp"
#include "tests/support/StreamReceiver.hpp"

using namespace stereo::test;
using std::chrono::microseconds;

namespace {

using Clock = std::chrono::steady_clock;

/// The consumer of a camera's segment: takes images whose number rises. Detaches itself.
class Consumer {
public:
  /// `frame`: size of a raw frame in pixels. Waits for the segment; std::runtime_error if none comes.
  Consumer(int key, cv::Size frame) : m_pattern(frame) {
    int id = -1;
    void* address = await([&] { return (id = shmget(key, 0, 0)) != -1; }) ? shmat(id, nullptr, 0) : nullptr;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the system's own failure value
    if (address == nullptr || address == reinterpret_cast<void*>(-1)) {
      throw std::runtime_error("no segment under key " + std::to_string(key));
    }
    m_segment = static_cast<std::uint8_t*>(address);
    m_word = reinterpret_cast<std::int32_t*>(m_segment);
    m_image = cv::Mat(frame.height, frame.width / 2, CV_8UC3, m_segment + 4);
  }
  ~Consumer() { EXPECT_EQ(shmdt(m_segment), 0); }
  Consumer(const Consumer&) = delete;
  Consumer& operator=(const Consumer&) = delete;

  /// One look at the segment: whether an image with a number above the last one's is there; it is handed back. The word
  /// comes before the pixels: the image is whole once its number can be read. The loopback module guards no buffer, so
  /// under load an image may come torn, and at first what its ring still holds, in any order: either is handed back for
  /// the next.
  bool takes() {
    if (*m_word != 2) {
      return false;
    }
    const Clock::time_point now = Clock::now();
    m_offered = m_offered == Clock::time_point{} ? now : m_offered;
    const int number = m_pattern.read(m_image, false);
    if (number <= m_last && now - m_offered <= beingCopied) {
      return false;
    }
    const bool isNew = number > m_last;
    m_torn += number < 0 ? 1 : 0;
    m_last = isNew ? number : m_last;
    m_offered = {};
    *m_word = 0;
    return isNew;
  }

  int torn() const { return m_torn; }
  std::string state() const {
    return "after number " + std::to_string(m_last) + ", word " + std::to_string(*m_word) + ", torn " +
           std::to_string(m_torn);
  }

private:
  // What cannot be read, or is no newer, for longer than any copy takes was torn or old before it was offered.
  static constexpr std::chrono::seconds beingCopied{1};

  Pattern m_pattern;
  std::uint8_t* m_segment = nullptr;
  volatile std::int32_t* m_word = nullptr;
  cv::Mat m_image;              // in the segment
  Clock::time_point m_offered;  // since when the image is there; the clock's zero: none is
  int m_last = -1;
  int m_torn = 0;
};

}  // namespace

TEST_F(Device, SharesTheLeftEyeUnderTheKeyOfItsPosition) {
  const Feeder feeder(fullSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(fullSize));
  camera.setPosNumber(7);
  ASSERT_TRUE(camera.startCapture(false, true));
  {
    Consumer consumer(9007, fullSize);
    constexpr int count = 5;
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(await([&] { return consumer.takes(); }, productLimit)) << "image " << i << " " << consumer.state();
    }
    EXPECT_LE(consumer.torn(), count);
    EXPECT_TRUE(camera.stopCapture());
  }
  EXPECT_EQ(shmget(9007, 0, 0), -1) << "removed at the end";
}

// What a client reads of both eyes is what arrives, while the left one is shared as well.
TEST_F(Device, SharesAndStreamsBesideItsReaders) {
  ASSERT_TRUE(inOwnNetwork()) << "run this through scripts/in-own-network";
  constexpr int position = 8;
  constexpr int bothEyes = 1;
  StreamReceiver receiver(9200 + position);
  const Feeder feeder(halfSize, 5);
  GuestCamera camera(loopbackDevice);
  ASSERT_TRUE(camera.setRawFrameSize(halfSize));
  camera.setPosNumber(position);
  camera.m_transmode = bothEyes;
  camera.m_transrate = 5;
  ASSERT_TRUE(camera.startCapture(true, true));
  const Pattern pattern(halfSize);
  const int eye = halfSize.width / 2;
  std::vector<cv::Mat> sent;
  {
    Consumer consumer(9000 + position, halfSize);
    int taken = 0;
    int readable = 0;
    const Clock::time_point end = Clock::now() + productLimit;
    while ((taken < 3 || readable < 4) && Clock::now() < end) {
      cv::Mat frame;
      microseconds timestamp{};
      ASSERT_TRUE(camera.getRawFrame(frame, timestamp));
      sent.push_back(frame);
      readable += pattern.read(frame.colRange(0, eye), false) >= 0 ? 1 : 0;
      taken += consumer.takes() ? 1 : 0;
    }
    EXPECT_GE(taken, 3) << consumer.state();
  }
  ASSERT_GE(sent.size(), 4U);
  ASSERT_TRUE(await([&] { return receiver.count() >= sent.size(); }, productLimit)) << receiver.count();
  EXPECT_TRUE(camera.stopCapture());
  const std::vector<cv::Mat> received = receiver.frames();
  ASSERT_EQ(received.size(), sent.size());
  int compared = 0;
  for (std::size_t k = 0; k < sent.size(); ++k) {
    ASSERT_EQ(received[k].size(), halfSize);
    // One that the loopback module let be torn has no number to compare.
    const int number = pattern.read(sent[k].colRange(0, eye), false);
    if (number < 0 || pattern.read(sent[k].colRange(eye, 2 * eye), true) != number) {
      continue;
    }
    EXPECT_EQ(pattern.read(received[k].colRange(0, eye), false), number);
    EXPECT_EQ(pattern.read(received[k].colRange(eye, 2 * eye), true), number);
    EXPECT_GT(cv::PSNR(received[k], sent[k]), 20.0) << k;
    ++compared;
  }
  EXPECT_GE(compared, 3);
  std::printf("%zu pictures sent, %d of them compared\n", sent.size(), compared);
}
