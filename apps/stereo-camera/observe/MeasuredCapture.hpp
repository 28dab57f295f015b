// SPDX-License-Identifier: Apache-2.0
// A device wrapper that records when it was read, for bench.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <opencv2/videoio.hpp>

#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "apps/stereo-camera/observe/WrappedDevice.hpp"

namespace stereo::app {

/// A wrapped device that records when it was read and when it returned.
///
/// One thread at a time may read or grab; it adds to the record. The other operations are as thread-safe as the
/// device's.
class MeasuredCapture final : public WrappedDevice {
public:
  using Link = ObserverLink<RunRecord>;

  /// `newestTimestamp` returns the timestamp of the raw frame published last. The reading thread calls it before each
  /// read, which shows what became of the previous frame, as long as the link is not cut.
  MeasuredCapture(std::unique_ptr<cv::VideoCapture> device, std::shared_ptr<Link> link,
                  std::function<std::chrono::microseconds()> newestTimestamp);

  bool read(cv::OutputArray image) override;
  bool grab() override;

private:
  template <typename Ask>
  bool measure(Ask ask);

  const std::shared_ptr<Link> m_link;
  const std::function<std::chrono::microseconds()> m_newestTimestamp;
};

}  // namespace stereo::app
