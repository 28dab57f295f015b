// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <opencv2/videoio.hpp>

#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "apps/stereo-camera/observe/WrappedDevice.hpp"

namespace stereo::app {

/// A wrapped device that notes when it was read and when it answered.
///
/// Reads and grabs belong to one thread at a time, the one that adds to the record. The others are as safe as the
/// device's own.
class MeasuredCapture final : public WrappedDevice {
public:
  /// `newestTimestamp` tells the timestamp of the raw frame that was published last. It is called by the reading thread
  /// before each read, and so tells what became of the frame before. The record outlives this object.
  MeasuredCapture(std::unique_ptr<cv::VideoCapture> device, RunRecord& record,
                  std::function<std::chrono::microseconds()> newestTimestamp);

  bool read(cv::OutputArray image) override;
  bool grab() override;

private:
  template <typename Ask>
  bool measure(Ask ask);

  RunRecord& m_record;
  const std::function<std::chrono::microseconds()> m_newestTimestamp;
};

}  // namespace stereo::app
