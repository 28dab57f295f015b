// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <memory>

#include "sources/VirtualCamera.hpp"
#include "tests/campaigns/soak/ExpectedImages.hpp"
#include "tests/campaigns/soak/Ledger.hpp"

namespace stereo::soak {

/// A camera on a device of numbered frames, set as the book says, that tells what a reader needs for its checks.
class SoakCamera : public sources::VirtualCamera {
public:
  /// The ledger has to outlive the camera.
  SoakCamera(std::unique_ptr<cv::VideoCapture> device, cv::Size frameSize, const Setting& setting, Ledger& ledger);
  ~SoakCamera() override { stopWorkers(); }

  /// To be called once by each thread that reads: whoever else asks for rectified pairs is the disparity worker.
  static void thisThreadReads();
  /// Timestamp of the pair that the calling thread's last rectified read was made from; 0 if there was none.
  static std::chrono::microseconds pairTimestamp();
  static void forgetPair();

  using StereoCamera::getRectStereoFrame;
  bool getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) override;
  bool getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view, std::chrono::microseconds& timestamp) override;

  /// Timestamp of the latest disparity, 0 before the first.
  std::chrono::microseconds disparityTimestamp();
  /// Copies the latest disparity with its view once it is another than that of `before`. False if none comes within
  /// `patience`.
  bool nextDisparity(std::chrono::microseconds before, std::chrono::milliseconds patience, TimeFrame& result);

private:
  Ledger& m_ledger;
};

}  // namespace stereo::soak
