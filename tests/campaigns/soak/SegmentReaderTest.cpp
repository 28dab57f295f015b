// SPDX-License-Identifier: Apache-2.0
// The process that takes images from the segment accepts good ones and notices bad ones.
#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include "src/system/SharedSegment.hpp"
#include "tests/campaigns/soak/ConsumerProcess.hpp"
#include "tests/campaigns/soak/Numbering.hpp"
#include "tests/campaigns/soak/SegmentReader.hpp"
#include "tests/campaigns/soak/SharedCounters.hpp"
#include "tests/support/Await.hpp"

using stereo::soak::faultOfEnd;
using stereo::soak::SharedCounters;
using stereo::soak::takeImages;
using stereo::sys::SharedSegment;
using stereo::test::await;
using testing::HasSubstr;

namespace {

constexpr int pictures = 3;
const cv::Size eyeSize = SharedCounters::eyeSize(false);
const std::size_t bytes = static_cast<std::size_t>(eyeSize.area()) * 3;

class SoakSegmentReader : public testing::Test {
protected:
  SoakSegmentReader() {
    for (int i = 0; i < pictures; ++i) {
      cv::Mat eye = shared.leftEye(false, i);
      cv::RNG random(static_cast<std::uint64_t>(i) + 1);
      random.fill(eye, cv::RNG::UNIFORM, 0, 256);
    }
    shared.counters().newest = 100;
  }
  ~SoakSegmentReader() override {
    over = true;
    if (taker.joinable()) {
      taker.join();
    }
    removeSegment();
  }

  // A segment as the camera makes it, with an image in it already where one is given.
  void makeSegment(std::size_t size = bytes + 4) {
    void* const address =
        segment.create(key, size) && segment.attach() ? shmat(shmget(key, 0, 0), nullptr, 0) : nullptr;
    if (address == nullptr ||
        address == reinterpret_cast<void*>(-1)) {  // NOLINT(performance-no-int-to-ptr): the system's failure value
      throw std::runtime_error("no segment");
    }
    word = static_cast<std::int32_t*>(address);
  }

  void removeSegment() {
    if (word != nullptr) {
      shmdt(std::exchange(word, nullptr));
      segment.detach();
      segment.remove();
    }
  }

  void begin() {
    ended = false;
    taker = std::thread([this] {
      takeImages(shared, key, [this] {
        if (beforeLook) {
          beforeLook();
        }
        return !over;
      });
      ended = true;
    });
  }

  cv::Mat eyeOf(std::uint32_t number) const {
    cv::Mat eye = shared.leftEye(false, static_cast<int>(number % pictures)).clone();
    stereo::soak::drawNumber(eye, number);
    return eye;
  }

  bool offer(const cv::Mat& eye) {
    return await([&] { return segment.offer(eye, bytes); });
  }

  std::int32_t getWord() const { return std::atomic_ref<std::int32_t>(*word).load(); }
  void setWord(std::int32_t value) const { std::atomic_ref<std::int32_t>(*word).store(value); }

  // The consumer's exit code.
  std::string failure() {
    over = !await([this] { return ended.load(); });
    taker.join();
    if (over) {
      return "none";
    }
    return shared.counters().failure.data();
  }

  const int key = static_cast<int>(getpid()) * 64 + 62 + 9000;
  SharedCounters shared{pictures};
  SharedSegment segment;
  std::int32_t* word = nullptr;
  std::function<void()> beforeLook;  // by the taker's thread, if anything
  std::atomic<bool> over{false};
  std::atomic<bool> ended{false};
  std::thread taker;
};

}  // namespace

TEST_F(SoakSegmentReader, TakesWholeImagesAndFreesTheSegment) {
  makeSegment();
  begin();
  for (const std::uint32_t number : {1U, 2U, 7U, 100U}) {
    ASSERT_TRUE(offer(eyeOf(number)));
    ASSERT_TRUE(await([&] { return shared.counters().last == number; }));
  }
  ASSERT_TRUE(await([&] { return getWord() == 0; }));
  EXPECT_EQ(shared.counters().taken, 4U);
  EXPECT_EQ(shared.counters().again, 0U);
  EXPECT_STREQ(shared.counters().failure.data(), "");
}

TEST_F(SoakSegmentReader, GoesOnWithTheNextSegment) {
  makeSegment();
  begin();
  ASSERT_TRUE(offer(eyeOf(1)));
  ASSERT_TRUE(await([&] { return shared.counters().taken == 1; }));
  removeSegment();
  makeSegment();
  ASSERT_TRUE(offer(eyeOf(2)));
  EXPECT_TRUE(await([&] { return shared.counters().taken == 2; }));
  EXPECT_EQ(shared.counters().attached, 2U);
}

TEST_F(SoakSegmentReader, FreesWhatAKilledOneHadTaken) {
  makeSegment();
  shared.counters().last = 5;
  ASSERT_TRUE(offer(eyeOf(5)));
  begin();
  ASSERT_TRUE(offer(eyeOf(6)));
  EXPECT_TRUE(await([&] { return shared.counters().taken == 1; }));
  EXPECT_EQ(shared.counters().again, 1U);
}

TEST_F(SoakSegmentReader, FreesAnImageThatIsMarkedAgainBeforeItsPixelsComeOnlyOnce) {
  makeSegment();
  shared.counters().last = 5;
  shared.counters().patience = 50;
  ASSERT_TRUE(offer(eyeOf(5)));  // that a killed one had taken
  beforeLook = [this] {
    if (getWord() == 0 && shared.counters().again == 1) {
      setWord(2);
    }
  };
  begin();
  EXPECT_THAT(failure(), HasSubstr("stays the same"));
  EXPECT_EQ(shared.counters().again, 1U);
}

TEST_F(SoakSegmentReader, EndsWhenItIsNoLongerWanted) {
  makeSegment();
  begin();
  over = true;
  EXPECT_TRUE(await([this] { return ended.load(); }));
  EXPECT_STREQ(shared.counters().failure.data(), "");
}

TEST(SoakConsumer, NotesAnEndThatWasNotAskedFor) {
  const int killed = W_EXITCODE(0, SIGKILL);
  EXPECT_EQ(faultOfEnd(killed, true, ""), "");
  EXPECT_EQ(faultOfEnd(killed, true, "row 3"), "row 3");
  EXPECT_EQ(faultOfEnd(killed, false, ""), "ended with wait status " + std::to_string(killed));
  // By itself, before it could be killed.
  EXPECT_EQ(faultOfEnd(W_EXITCODE(1, 0), true, "row 3"), "row 3");
  EXPECT_EQ(faultOfEnd(W_EXITCODE(1, 0), true, ""), "ended with wait status 256");
  EXPECT_EQ(faultOfEnd(W_EXITCODE(0, SIGSEGV), true, ""), "ended with wait status 11");
}

TEST_F(SoakSegmentReader, NoticesAStatusWordOutOfTheHandshake) {
  makeSegment();
  begin();
  setWord(1);
  EXPECT_EQ(failure(), "status word 1");
}

TEST_F(SoakSegmentReader, NoticesAnImageThatStaysTorn) {
  makeSegment();
  shared.counters().patience = 50;
  cv::Mat torn = eyeOf(8);
  const cv::Range lower(torn.rows - 1, torn.rows);
  eyeOf(7).rowRange(lower).copyTo(torn.rowRange(lower));
  ASSERT_TRUE(offer(torn));
  begin();
  EXPECT_THAT(failure(), HasSubstr("row 399 is frame 7's, not frame 8's"));
  EXPECT_EQ(shared.counters().taken, 0U);
}

TEST_F(SoakSegmentReader, NoticesAnImageThatIsMarkedButStaysTheSame) {
  makeSegment();
  begin();
  ASSERT_TRUE(offer(eyeOf(8)));
  ASSERT_TRUE(await([&] { return shared.counters().taken == 1; }));
  shared.counters().patience = 50;
  ASSERT_TRUE(offer(eyeOf(8)));
  EXPECT_THAT(failure(), HasSubstr("stays the same"));
}

TEST_F(SoakSegmentReader, NoticesFramesThatGoBackOrWereNeverDelivered) {
  makeSegment();
  shared.counters().last = 9;
  begin();
  ASSERT_TRUE(offer(eyeOf(8)));
  EXPECT_THAT(failure(), HasSubstr("frame 8 after frame 9"));
  setWord(0);
  // The mark comes before the pixels: until then the last image is there, which a reader that waited for the mark
  // leaves.
  const cv::Mat lastEye = eyeOf(9);
  lastEye.copyTo(cv::Mat(lastEye.size(), CV_8UC3, word + 1));
  std::atomic<int> looks = 0;
  beforeLook = [&looks] { ++looks; };
  begin();
  ASSERT_TRUE(await([&] { return looks > 2; }));
  ASSERT_TRUE(offer(eyeOf(101)));
  EXPECT_THAT(failure(), HasSubstr("frame 101 after frame 9, the newest being 100"));
}

TEST_F(SoakSegmentReader, NoticesASegmentOfAnotherSize) {
  makeSegment(1234);
  begin();
  EXPECT_EQ(failure(), "a segment of 1234 bytes");
}

TEST(SoakShared, IsTheSameMemoryByItsDescriptor) {
  const SharedCounters made(2);
  const SharedCounters opened = SharedCounters::open(dup(made.descriptor()));
  EXPECT_EQ(opened.pictures(), 2);
  for (const bool fullSize : {true, false}) {
    for (int i = 0; i < 2; ++i) {
      made.leftEye(fullSize, i).setTo(cv::Scalar::all(10 * i + (fullSize ? 1 : 2)));
    }
  }
  made.counters().taken = 17;
  EXPECT_EQ(opened.counters().taken, 17U);
  for (const bool fullSize : {true, false}) {
    for (int i = 0; i < 2; ++i) {
      const cv::Mat eye = opened.leftEye(fullSize, i);
      EXPECT_EQ(cv::countNonZero(eye.reshape(1) != 10 * i + (fullSize ? 1 : 2)), 0);
    }
  }
  EXPECT_THROW(SharedCounters::open(-1), std::runtime_error);
}
