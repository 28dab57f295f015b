// SPDX-License-Identifier: Apache-2.0
// A device that plays images, videos and recordings.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "sources/FrameSource.hpp"
#include "sources/Recording.hpp"

namespace stereo::sources {

/// Device that plays side-by-side frames: one image, a folder of images in the order of their names, a video file, or
/// the folder of a `Recording`.
///
/// With `recordedTiming`, a `Recording` is played with the intervals of its timestamps; when it starts over, the last
/// frame lasts as long as the one before. Its rate is then the mean one and cannot be set.
///
/// Frames are converted to 8-bit BGR and keep their recorded size, which may change from image to image. In a folder,
/// other files and images that cannot be decoded are skipped. Up to 256 MB of decoded images are kept, so that a loop
/// doesn't decode them again. The size cannot be set.
class ReplayCapture final : public FrameSource {
public:
  struct Options {
    std::string path;             ///< image, folder, video or recording
    double rate = 30.0;           ///< frames per second, 0: as fast as possible
    bool recordedTiming = false;  ///< play a `Recording` with its own timing, ignoring `rate`
    bool loop = true;             ///< start over after the last frame
    int leadIn = 0;               ///< deliver the first frame this many times more, ahead of the recording
  };

  /// Throws std::runtime_error with a message of one line if the path has no readable frame or a recording's timestamps
  /// cannot be read.
  explicit ReplayCapture(const Options& options);

  /// Everything except the frames; nothing if the path is not a `Recording`.
  const std::optional<Recording>& recording() const { return m_recording; }
  /// Size of the first frame of the recording, pixels.
  const cv::Size& firstFrameSize() const { return m_firstFrameSize; }
  /// Whether a recording that isn't looped has been played to its end. Any thread.
  bool finished() const { return m_finished.load(); }
  /// Recorded timestamp of the frame delivered last, microseconds since the epoch; negative before the first frame, and
  /// without recorded timestamps. Any thread.
  std::int64_t recordedTimestamp() const { return m_recordedTimestamp.load(); }
  /// Images that could not be decoded, or frames for which a recording has timestamps but no picture, found so far. Any
  /// thread.
  std::uint64_t skipped() const { return m_skipped.load(); }
  bool set(int propId, double value) override;

protected:
  cv::Mat next() override;
  cv::Size frameSize() const override;
  bool resize(int propId, double value) override;
  std::chrono::nanoseconds framePeriod() const override;

private:
  cv::Mat nextImage();
  cv::Mat nextOfVideo();
  cv::Mat image(std::size_t index);
  bool openVideo();

  ReplayCapture(const Options& options, std::optional<Recording> recording);

  const std::string m_path;
  const bool m_loop;
  const std::optional<Recording> m_recording;
  const std::vector<std::int64_t> m_timestamps;  // of the recording's frames, microseconds; empty: none
  const bool m_recordedTiming;
  std::vector<std::filesystem::path> m_images;  // empty: the path is a video
  // The rest is guarded by the source's lock.
  std::vector<cv::Mat> m_decoded;  // parallel to `m_images`; empty if not kept
  std::size_t m_decodedBytes = 0;
  std::size_t m_index = 0;        // of the next image
  std::size_t m_frame = 0;        // of the recording: the next to deliver
  std::size_t m_videoFrames = 0;  // read since the video was opened
  cv::VideoCapture m_video;
  cv::Mat m_first;  // the first frame, until it was delivered for the last time
  int m_leadIn;     // how often it is still delivered ahead of the recording
  cv::Size m_firstFrameSize;
  cv::Size m_frameSize;        // of the newest frame
  std::vector<char> m_spoilt;  // parallel to `m_images`: could not be decoded
  std::atomic<std::uint64_t> m_skipped{0};
  std::atomic<bool> m_finished{false};
  std::atomic<std::int64_t> m_recordedTimestamp{-1};
};

}  // namespace stereo::sources
