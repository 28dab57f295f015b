// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/ViewMaker.hpp"

#include <map>
#include <mutex>

#include <gtest/gtest.h>

#include "apps/stereo-camera/pictures/WideResults.hpp"
#include "apps/stereo-camera/view/JpegEncoder.hpp"
#include "sim/SimulatedCamera.hpp"
#include "tests/support/Await.hpp"

namespace stereo::app {
namespace {

// The maker rectifies by itself. The frame is always the same, so its pictures must be those of the camera's own reads.
TEST(ViewMaker, RectifiesToTheBitAsTheCameraDoes) {
  sim::SimulatedCamera camera(
      {.frameSize = {928, 400}, .moving = false, .framesPerPeriod = 1, .rectFrameSize = {470, 330}});
  camera.setDepthMode(1);
  const WideDepthCalibration calibration = wideCalibration(camera);
  ASSERT_TRUE(camera.startCapture(false, false));
  std::map<View, cv::Mat> expected;
  ASSERT_TRUE(camera.getRectStereoFrame(expected[View::left], expected[View::right]));
  cv::Mat perspective;
  std::chrono::microseconds timestamp{0};
  ASSERT_TRUE(
      camera.getRectStereoFrame(expected[View::lonLatLeft], expected[View::lonLatRight], perspective, timestamp));

  CameraFeed feed;
  StageTimes times;
  WideState wide({});
  std::mutex mutex;
  std::map<View, ViewMessage> seen;
  feed.setNotify([&](const std::shared_ptr<const ViewMessage>& message) {
    const std::lock_guard lock(mutex);
    seen[message->view] = *message;
  });
  ViewMaker maker({camera, feed, times, wide, calibration, true, [](const std::string& text) { FAIL() << text; }});
  for (const auto& [view, picture] : expected) {
    feed.want(view, 1);
    ASSERT_TRUE(test::await([&, view = view] {
      const std::lock_guard lock(mutex);
      return seen.count(view) == 1;
    }));
    feed.want(view, -1);
    std::vector<std::uint8_t> jpeg;
    JpegEncoder().append(picture, jpeg);
    const std::lock_guard lock(mutex);
    EXPECT_EQ(seen.at(view).size, picture.size());
    EXPECT_TRUE(seen.at(view).payload == jpeg) << viewNames.at(static_cast<std::size_t>(view));
  }
  camera.stopCapture();
}

}  // namespace
}  // namespace stereo::app
