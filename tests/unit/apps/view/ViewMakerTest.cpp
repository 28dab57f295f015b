// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/ViewMaker.hpp"

#include <array>
#include <map>
#include <mutex>

#include <gtest/gtest.h>

#include "apps/stereo-camera/pictures/WideResults.hpp"
#include "apps/stereo-camera/view/JpegEncoder.hpp"
#include "apps/stereo-camera/view/RectifiedEye.hpp"
#include "sim/SimulatedCamera.hpp"
#include "tests/support/Await.hpp"

namespace stereo::app {
namespace {

// Its frame is always the same. The rectified eye is several strips high, the last one of another height.
const sim::SimulatedCamera::Options still{
    .frameSize = {928, 400}, .moving = false, .framesPerPeriod = 1, .rectFrameSize = {470, 330}};

TEST(RectifiedEye, IsToTheBitWhatTheCameraRectifies) {
  sim::SimulatedCamera camera(still);
  camera.setDepthMode(1);
  ASSERT_TRUE(camera.startCapture(false, false));
  std::array<cv::Mat, 2> eyes;
  std::array<cv::Mat, 2> perspective;
  std::array<cv::Mat, 2> lonLat;
  cv::Mat view;
  std::chrono::microseconds timestamp{0};
  ASSERT_TRUE(camera.getStereoFrame(eyes[0], eyes[1], timestamp));
  ASSERT_TRUE(camera.getRectStereoFrame(perspective[0], perspective[1]));
  ASSERT_TRUE(camera.getRectStereoFrame(lonLat[0], lonLat[1], view, timestamp));
  for (const bool isRight : {false, true}) {
    const int eye = isRight ? 1 : 0;
    EXPECT_EQ(cv::norm(RectifiedEye(camera.viewMaps(false, isRight)).of(eyes[eye]), perspective[eye], cv::NORM_INF), 0);
    EXPECT_EQ(cv::norm(RectifiedEye(camera.viewMaps(true, isRight)).of(eyes[eye]), lonLat[eye], cv::NORM_INF), 0);
  }
  EXPECT_GT(cv::norm(perspective[0], perspective[1], cv::NORM_INF), 100);
  camera.stopCapture();
}

TEST(ViewMaker, ShowsWhatTheCameraRectifies) {
  sim::SimulatedCamera camera(still);
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
  ViewMaker maker({camera, feed, times, wide, calibration, [](const std::string& text) { FAIL() << text; }});
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
