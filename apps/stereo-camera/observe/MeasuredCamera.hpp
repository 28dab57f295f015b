// SPDX-License-Identifier: Apache-2.0
// A camera that records when its frames and disparities were ready, for bench.
#pragma once

#include <memory>
#include <utility>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"
#include "apps/stereo-camera/observe/MeasuredCapture.hpp"
#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "sources/FrameSource.hpp"

namespace stereo::app {

/// Timestamp of the raw pair that the calling thread's latest rectified pair or colored cloud was made from, system
/// microseconds. The operations themselves return none, or another.
inline thread_local std::int64_t inputTimestamp = 0;

/// A camera that records what it does, without a thread or lock of its own, in the virtual calls of the camera's
/// threads.
///
/// - Its device is wrapped in a `MeasuredCapture`.
/// - The disparity worker fetches each pair through the four-argument `getRectStereoFrame`. By then it has published
///   the previous disparity and held it for its readers for a millisecond; that moment is recorded. Nobody else may
///   call that form during a measurement.
/// - `getStereoFrame` records the timestamp for the calling thread, since the two-argument `getRectStereoFrame` returns
///   none.
/// - The two-image `getDepthFrame`, which the colored cloud calls while it holds the disparity's mutex, records the
///   timestamp of the disparity. Other callers must hold that mutex too.
template <typename Camera>
class MeasuredCamera final : public Camera {
public:
  /// The record outlives the camera; the other arguments are the camera's own.
  template <typename... Arguments>
  explicit MeasuredCamera(RunRecord& record, Arguments&&... arguments)
      : Camera(std::forward<Arguments>(arguments)...),
        m_record(record),
        m_link(std::make_shared<MeasuredCapture::Link>(record)) {
    if (this->m_videoCapture == nullptr) {
      return;
    }
    std::unique_ptr<cv::VideoCapture> device(std::exchange(this->m_videoCapture, nullptr));
    if (const auto* const source = dynamic_cast<const sources::FrameSource*>(device.get())) {
      record.framesMissed = [source] { return source->framesMissed(); };
    }
    record.deviceRate = [this] { return this->m_videoCapture->get(cv::CAP_PROP_FPS); };
    // Only the reading thread writes this timestamp, so it needs no lock to read it.
    m_measured = this->m_videoCapture =
        new MeasuredCapture(std::move(device), m_link, [this] { return this->m_rawFrame.timestamp; });
  }

  ~MeasuredCamera() override {
    this->stopWorkers();  // they call the operations below, which must not change under them
    m_record.framesMissed = nullptr;
    m_record.deviceRate = nullptr;
  }

  using Camera::getDepthFrame;
  using Camera::getRectStereoFrame;

  bool getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) override {
    const bool got = Camera::getStereoFrame(left, right, timestamp);
    inputTimestamp = got ? timestamp.count() : 0;
    return got;
  }

  bool getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view, std::chrono::microseconds& timestamp) override {
    // Only the disparity worker writes it, and this runs on that thread.
    const std::int64_t published = this->m_disparityFrame.timestamp.count();
    if (published != m_disparityTimestamp) {
      m_disparityTimestamp = published;
      m_record.disparities.add({published, systemMicroseconds(), threadMicroseconds()});
    }
    return Camera::getRectStereoFrame(left, right, view, timestamp);
  }

  void getDepthFrame(cv::Mat& disparity, cv::Mat& depth) override {
    inputTimestamp = this->m_disparityFrame.timestamp.count();
    Camera::getDepthFrame(disparity, depth);
  }

  bool stopCapture() override {
    const bool stopped = Camera::stopCapture();
    if (this->m_videoCapture != m_measured) {
      m_link->cut();  // the device was abandoned
    }
    m_record.published(this->m_rawFrame.timestamp.count());
    return stopped;
  }

private:
  RunRecord& m_record;
  const std::shared_ptr<MeasuredCapture::Link> m_link;
  const cv::VideoCapture* m_measured = nullptr;  // only to compare
  std::int64_t m_disparityTimestamp = 0;
};

}  // namespace stereo::app
