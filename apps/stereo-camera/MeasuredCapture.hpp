// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <opencv2/videoio.hpp>

#include "RunRecord.hpp"

namespace stereo::app {

/// An opened device that notes when it was read and when it answered; otherwise it does what the device does that it
/// owns.
///
/// Reads and grabs belong to one thread at a time, the one that adds to the record. The others are as safe as the
/// device's own. Where OpenCV opened the device, this tells its back end too.
class MeasuredCapture final : public cv::VideoCapture {
public:
  /// `newestStamp` tells the stamp of the raw frame that was published last. It is called by the reading thread before
  /// each read, and so tells what became of the frame before. The record outlives this object.
  MeasuredCapture(std::unique_ptr<cv::VideoCapture> device, RunRecord& record,
                  std::function<std::chrono::microseconds()> newestStamp);

  bool read(cv::OutputArray image) override;
  bool grab() override;
  bool retrieve(cv::OutputArray image, int flag = 0) override;
  bool set(int propId, double value) override;
  double get(int propId) const override;
  bool isOpened() const override;
  void release() override;

private:
  template <typename Ask>
  bool measure(Ask ask);

  const std::unique_ptr<cv::VideoCapture> m_device;
  RunRecord& m_record;
  const std::function<std::chrono::microseconds()> m_newestStamp;
};

}  // namespace stereo::app
