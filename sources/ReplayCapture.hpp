// SPDX-License-Identifier: Apache-2.0
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

/// Device that plays side-by-side recordings: one image, a folder of images in the order of their names, a video file,
/// or the folder of a `Recording`.
///
/// A `Recording` is played with the times that lie between its timestamps, unless a rate is given; started over, its
/// last frame stays as long as the one before. Its rate, which can't be set then, is the mean one.
///
/// Frames come as 8-bit BGR (grey ones are turned into it) in the size that they were recorded in, which may change
/// from image to image. Of a folder, files that are no images are passed over, and so are images that cannot be
/// decoded. Decoded images are kept up to 256 MB, so that a loop doesn't decode them over and over. The size cannot be
/// set.
class ReplayCapture final : public FrameSource {
public:
  struct Options {
    std::string path;             ///< image, folder, video or recording
    double rate = 30.0;           ///< frames per second, 0: as fast as possible
    bool recordedTiming = false;  ///< play a `Recording` as it came, whatever the rate; nothing to other paths
    bool loop = true;             ///< start over after the last frame; otherwise there is nothing more to deliver
    int leadIn = 0;               ///< deliver the first frame this many times more, before the recording begins
  };

  /// Throws std::runtime_error, with a message of one line, if there is no frame to be had at the path, or if a
  /// recording's timestamps cannot be read.
  explicit ReplayCapture(const Options& options);

  /// What stands beside the frames; nothing where the path is no `Recording`.
  const std::optional<Recording>& recording() const { return m_recording; }
  /// Size of the first frame of the recording, pixels.
  const cv::Size& firstFrameSize() const { return m_firstFrameSize; }
  /// Whether a recording that isn't looped has been played to its end. Any thread.
  bool finished() const { return m_finished.load(); }
  /// Timestamp that the frame delivered last was recorded with, microseconds since the epoch; negative before the first
  /// frame, and where no timestamps were recorded. Any thread.
  std::int64_t recordedTimestamp() const { return m_recordedTimestamp.load(); }
  /// Images that could not be decoded, or frames that a recording's timestamps promise and its video lacks, as far as
  /// they were come upon. Any thread.
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
  std::vector<cv::Mat> m_decoded;  // beside `m_images`; empty where not kept
  std::size_t m_decodedBytes = 0;
  std::size_t m_index = 0;        // of the next image
  std::size_t m_frame = 0;        // of the recording: the one to be delivered next
  std::size_t m_videoFrames = 0;  // read since the video was opened
  cv::VideoCapture m_video;
  cv::Mat m_first;  // the first frame, until it was delivered for the last time ahead of the recording
  int m_leadIn;     // how often it still is
  cv::Size m_firstFrameSize;
  cv::Size m_frameSize;        // of the newest frame
  std::vector<char> m_spoilt;  // beside `m_images`: could not be decoded
  std::atomic<std::uint64_t> m_skipped{0};
  std::atomic<bool> m_finished{false};
  std::atomic<std::int64_t> m_recordedTimestamp{-1};
};

}  // namespace stereo::sources
