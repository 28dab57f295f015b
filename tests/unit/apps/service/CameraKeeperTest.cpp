// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/service/CameraKeeper.hpp"

#include <filesystem>
#include <mutex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/stereo-camera/process/Failure.hpp"
#include "sim/SimulatedCamera.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::app {
namespace {

namespace fs = std::filesystem;
using State = CameraStatus::State;

class CameraKeeperTest : public testing::Test {
protected:
  CameraKeeperTest() {
    plan.name = "front";
    plan.source.simulate = true;
    plan.source.frameSize = "928x400";
    plan.source.rectifiedSize = "232x200";
    plan.source.still = true;
    plan.wide.size = "64x64";
  }

  CameraKeeper& keeper() {
    if (!m_keeper) {
      m_keeper.emplace(plan, ServiceFolders{folder.path("snapshots"), folder.path("recordings")},
                       [this](const std::string& line) {
                         const std::lock_guard lock(m_mutex);
                         m_log += line + "\n";
                       });
    }
    return *m_keeper;
  }

  bool awaitState(State state) {
    return test::await([&] { return keeper().status().state == state; });
  }

  std::string log() {
    const std::lock_guard lock(m_mutex);
    return m_log;
  }

  const test::TempDir folder;
  CameraPlan plan;

private:
  std::mutex m_mutex;
  std::string m_log;
  std::optional<CameraKeeper> m_keeper;
};

TEST_F(CameraKeeperTest, RunsACameraAndSaysHowItIs) {
  ASSERT_TRUE(awaitState(State::running));
  ASSERT_TRUE(test::await([&] { return keeper().status().rate > 0; }));
  const CameraStatus status = keeper().status();
  EXPECT_EQ(status.name, "front");
  EXPECT_EQ(status.source, "simulated camera, seed 1");
  EXPECT_EQ(status.frame, cv::Size(928, 400));
  EXPECT_TRUE(status.calibrated);
  EXPECT_EQ(status.views, allViews);
  EXPECT_GT(status.frames, 0U);
  EXPECT_EQ(status.restarts, 0U);
  EXPECT_NEAR(static_cast<double>(status.newest), static_cast<double>(test::timeOfDay().count()), 60e6);
  EXPECT_TRUE(status.stages.empty());  // nobody watches, so nothing is made
}

TEST_F(CameraKeeperTest, MakesWhatIsWatchedOnly) {
  ASSERT_TRUE(awaitState(State::running));
  std::mutex mutex;
  std::map<View, ViewMessage> seen;
  keeper().feed().setNotify([&](const std::shared_ptr<const ViewMessage>& message) {
    const std::lock_guard lock(mutex);
    seen[message->view] = *message;
  });
  const auto count = [&] {
    const std::lock_guard lock(mutex);
    return seen.size();
  };
  keeper().feed().want(View::left, 1);
  ASSERT_TRUE(test::await([&] { return count() == 1; }));
  for (const View view : {View::rawLeft, View::rawRight, View::right, View::lonLatLeft, View::lonLatRight, View::range,
                          View::rangeColor}) {
    keeper().feed().want(view, 1);
  }
  ASSERT_TRUE(test::await([&] { return count() == viewCount; }));
  keeper().feed().setNotify(nullptr);
  EXPECT_EQ(seen.at(View::rawLeft).size, cv::Size(464, 400));
  EXPECT_EQ(seen.at(View::left).size, cv::Size(232, 200));
  EXPECT_EQ(seen.at(View::lonLatRight).size, cv::Size(232, 200));
  EXPECT_EQ(seen.at(View::range).size, cv::Size(32, 32));
  EXPECT_TRUE(seen.at(View::range).isRange);
  for (const auto& [view, message] : seen) {
    EXPECT_GT(message.timestamp, 0) << viewNames.at(static_cast<std::size_t>(view));
    EXPECT_FALSE(message.payload.empty());
  }
  EXPECT_EQ(keeper().status().stages.count("wide depth"), 1U);
}

TEST_F(CameraKeeperTest, TakesNewOptionsOfWideDepth) {
  ASSERT_TRUE(awaitState(State::running));
  keeper().feed().want(View::range, 1);
  ASSERT_TRUE(test::await([&] { return keeper().status().wideFindings.has_value(); }));
  WideDepthOptions options = keeper().wide().options();
  options.farthest = 0.2;  // nothing in the room is so near
  keeper().wide().setOptions(options);
  EXPECT_TRUE(test::await([&] {
    const auto findings = keeper().status().wideFindings;
    return findings && findings->measuredPercent < 5;
  }));
}

TEST_F(CameraKeeperTest, MakesANewCameraWhenNoMoreFramesCome) {
  test::writeFile(folder.path("faults"), "unplug 40 ever\n");
  plan.source.still = false;
  plan.source.faults = folder.path("faults");
  plan.patience = 0.5;
  ASSERT_TRUE(awaitState(State::running));
  const std::uint64_t before = keeper().status().frames;
  CameraStatus waiting;
  ASSERT_TRUE(test::await([&] {
    waiting = keeper().status();
    return waiting.state == State::waiting;
  }));
  EXPECT_THAT(waiting.reason, testing::HasSubstr("no frame for 500 ms"));
  EXPECT_LE(waiting.since, test::timeOfDay().count() - 400'000);  // when the last frame came
  ASSERT_TRUE(awaitState(State::running));
  EXPECT_GT(keeper().status().frames, before);
  EXPECT_GE(keeper().status().restarts, 1U);
  EXPECT_THAT(log(), testing::HasSubstr("front: frames again"));
}

TEST_F(CameraKeeperTest, WaitsForADeviceThatIsNotThere) {
  plan.source.simulate = false;
  plan.device = "/dev/video77";
  ASSERT_TRUE(test::await([&] { return keeper().status().reason != "starting"; }));
  const CameraStatus status = keeper().status();
  EXPECT_EQ(status.state, State::waiting);
  EXPECT_EQ(status.reason, "there is no /dev/video77: unplugged?");
  keeper().record(true);
  EXPECT_TRUE(test::await([&] { return keeper().status().recording.error == "no frames come"; }));
}

TEST_F(CameraKeeperTest, RecordsAndTakesSnapshots) {
  ASSERT_TRUE(awaitState(State::running));
  keeper().record(true);
  ASSERT_TRUE(test::await([&] { return keeper().status().recording.counts.written >= 5; })) << log();
  keeper().takeSnapshot();
  ASSERT_TRUE(test::await([&] { return !keeper().status().snapshotFolder.empty(); })) << log();
  keeper().record(false);
  ASSERT_TRUE(test::await([&] { return !keeper().status().recording.isOn; }));
  const CameraStatus status = keeper().status();
  EXPECT_EQ(status.recording.error, "");
  EXPECT_EQ(sources::Recording::open(status.recording.folder).timestamps.size(), status.recording.counts.written);
  for (const char* const name :
       {"raw.png", "perspective-left.png", "lonlat-left.png", "wide-range.png", "wide-cloud.ply"}) {
    EXPECT_TRUE(fs::exists(fs::path(status.snapshotFolder) / name)) << name;
  }
}

TEST_F(CameraKeeperTest, ChecksTheCalibration) {
  plan.source.still = false;  // repeated frames count once
  ASSERT_TRUE(awaitState(State::running));
  keeper().check();
  ASSERT_TRUE(test::await([&] { return keeper().status().check.state == CameraStatus::Check::State::done; }));
  const CameraStatus::Check check = keeper().status().check;
  EXPECT_EQ(check.frames, 5);
  EXPECT_EQ(check.fits, std::optional(true)) << check.text;
}

TEST_F(CameraKeeperTest, LoadsACalibrationAgain) {
  plan.source.calibration = folder.path("calibration.yml");
  {
    sim::SimulatedCamera camera({.frameSize = {928, 400}, .seed = 7, .moving = false});
    camera.setPosNumber(3);
    camera.saveCalibParams(plan.source.calibration);
  }
  ASSERT_TRUE(awaitState(State::running));
  EXPECT_EQ(keeper().status().position, 3);
  test::writeFile(plan.source.calibration, "no calibration");
  keeper().reload();
  ASSERT_TRUE(
      test::await([&] { return log().find("not loaded again, the running camera stays") != std::string::npos; }));
  EXPECT_EQ(keeper().status().state, State::running);
  {
    sim::SimulatedCamera camera({.frameSize = {928, 400}, .seed = 7, .moving = false});
    camera.setPosNumber(5);
    camera.saveCalibParams(plan.source.calibration);
  }
  keeper().reload();
  EXPECT_TRUE(test::await([&] { return keeper().status().position == 5; })) << log();
  EXPECT_TRUE(awaitState(State::running));
}

TEST_F(CameraKeeperTest, RefusesOptionsThatCannotBe) {
  plan.wide.field = "200x150";
  EXPECT_THROW(keeper(), Failure);
}

}  // namespace
}  // namespace stereo::app
