// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/ViewMaker.hpp"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "ReadLimit.hpp"
#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "apps/stereo-camera/pictures/WideResults.hpp"
#include "apps/stereo-camera/process/ResourceUsage.hpp"
#include "apps/stereo-camera/process/YieldingThread.hpp"
#include "apps/stereo-camera/view/JpegEncoder.hpp"
#include "apps/stereo-camera/view/RangePicture.hpp"
#include "apps/stereo-camera/view/RectifiedEye.hpp"

namespace stereo::app {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t rawViews = bitOf(View::rawLeft) | bitOf(View::rawRight);
constexpr std::uint32_t rectifiedViews = bitOf(View::left) | bitOf(View::right);
constexpr std::uint32_t lonLatViews = bitOf(View::lonLatLeft) | bitOf(View::lonLatRight);
constexpr std::uint32_t wideViews = bitOf(View::range) | bitOf(View::rangeColor);

constexpr int widest = 464;  // pixels of a raw eye as it is watched: half of a large one, which costs a quarter

double millisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

}  // namespace

// Encodes pictures of one thread's views for those who want them.
class ViewMaker::Publisher {
public:
  Publisher(CameraFeed& feed, StageTimes& times) : m_feed(feed), m_times(times) {}

  void show(View view, const cv::Mat& picture, std::chrono::microseconds timestamp, int mostWidth = 0) {
    if (m_feed.isFullWanted(view)) {
      encode(view, picture, timestamp, true);
    }
    if (!m_feed.isSmallWanted(view)) {
      return;
    }
    if (mostWidth > 0 && picture.cols > mostWidth) {
      cv::resize(picture, m_small, {mostWidth, picture.rows * mostWidth / picture.cols}, 0, 0, cv::INTER_AREA);
      encode(view, m_small, timestamp, false);
    } else {
      encode(view, picture, timestamp, false);
    }
  }

  void showRange(const WideDepthImage& image, std::chrono::microseconds timestamp) {
    const Clock::time_point begin = Clock::now();
    m_feed.publish(rangeMessage(image, timestamp.count(), m_encoder));
    m_times.add("encode", millisecondsSince(begin));
  }

private:
  void encode(View view, const cv::Mat& picture, std::chrono::microseconds timestamp, bool isFull) {
    const Clock::time_point begin = Clock::now();
    ViewMessage message;
    message.view = view;
    message.isFull = isFull;
    message.timestamp = timestamp.count();
    message.size = picture.size();
    m_encoder.append(picture, message.payload);
    m_feed.publish(std::move(message));
    m_times.add("encode", millisecondsSince(begin));
  }

  CameraFeed& m_feed;
  StageTimes& m_times;
  JpegEncoder m_encoder;
  cv::Mat m_small;
};

std::uint32_t deliverableViews(bool calibrated) {
  return rawViews | (calibrated ? rectifiedViews | lonLatViews | wideViews : 0);
}

ViewMaker::ViewMaker(Parts parts) : m_parts(std::move(parts)) {
  makeRaw();
  if (!m_parts.calibration) {
    return;
  }
  makeRectified("rectify", View::left, View::right, false);
  makeRectified("longitude-latitude", View::lonLatLeft, View::lonLatRight, true);
  makeWide();
}

ViewMaker::~ViewMaker() = default;  // the threads are asked to end, and joined

void ViewMaker::requestStop() {
  for (std::jthread& each : m_threads) {
    each.request_stop();
  }
}

// `make` reads a frame and shows the wanted views of it, of these; false if it got none.
void ViewMaker::run(const std::function<bool()>& make, std::uint32_t views) {
  m_threads.emplace_back([this, make, views](const std::stop_token& stop) {
    const ReadLimit limit([&stop] { return !stop.stop_requested(); });
    std::string lastProblem;
    while (m_parts.feed.awaitWanted(views, stop)) {
      try {
        if (!make()) {
          // A stopped camera's reads return at once; whoever stopped it is about to end this thread, too.
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
      } catch (const std::exception& error) {
        // The next frame may be better.
        if (lastProblem != error.what()) {
          lastProblem = error.what();
          m_parts.problem(lastProblem);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
      }
    }
  });
}

void ViewMaker::makeRaw() {
  struct State {
    Publisher publisher;
    cv::Mat left, right;
  };
  auto state = std::make_shared<State>(State{Publisher(m_parts.feed, m_parts.times), {}, {}});
  run(
      [=, this] {
        std::chrono::microseconds timestamp{0};
        if (!readPair(state->left, state->right, timestamp)) {
          return false;
        }
        state->publisher.show(View::rawLeft, state->left, timestamp, widest);
        state->publisher.show(View::rawRight, state->right, timestamp, widest);
        return true;
      },
      rawViews);
}

// The camera's own rectified reads make both eyes, and feed the network stream. This makes only what is watched.
void ViewMaker::makeRectified(const char* stage, View leftView, View rightView, bool isLonLat) {
  struct State {
    Publisher publisher;
    cv::Mat eyes[2];
    RectifiedEye rectified[2];
  };
  const sources::HostCamera& camera = m_parts.camera;
  auto state = std::make_shared<State>(
      State{Publisher(m_parts.feed, m_parts.times),
            {},
            {RectifiedEye(camera.viewMaps(isLonLat, false)), RectifiedEye(camera.viewMaps(isLonLat, true))}});
  run(
      [=, this] {
        std::chrono::microseconds timestamp{0};
        if (!readPair(state->eyes[0], state->eyes[1], timestamp)) {
          return false;
        }
        for (const auto& [view, eye] : {std::pair(leftView, 0), std::pair(rightView, 1)}) {
          if (m_parts.feed.isWanted(view)) {  // now: the read took up to a frame's time
            const Clock::time_point begin = Clock::now();
            const cv::Mat& picture = state->rectified[eye].of(state->eyes[eye]);
            m_parts.times.add(stage, millisecondsSince(begin));  // of each eye
            state->publisher.show(view, picture, timestamp);
          }
        }
        return true;
      },
      bitOf(leftView) | bitOf(rightView));
}

// Both eyes of the next frame. The stage's time is processor time: the time on the clock is mostly the wait for the
// frame.
bool ViewMaker::readPair(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) {
  const std::int64_t before = threadMicroseconds();
  const bool got = m_parts.camera.getStereoFrame(left, right, timestamp);
  if (got) {
    m_parts.times.add("copy", static_cast<double>(threadMicroseconds() - before) / 1000.0);
  }
  return got;
}

// Reads and encodes on one thread and measures on another, which gives way to the capture worker.
void ViewMaker::makeWide() {
  struct State {
    State(CameraFeed& feed, StageTimes& times) : publisher(feed, times) {}
    Publisher publisher;
    cv::Mat left, right;
    WideDepthImage image;
    std::optional<WideDepth> engine;
    cv::Size eye;
    unsigned generation = 0;
    YieldingThread worker;
  };
  const auto state = std::make_shared<State>(m_parts.feed, m_parts.times);
  run(
      [this, state] {
        std::chrono::microseconds timestamp{0};
        if (!readPair(state->left, state->right, timestamp)) {
          return false;
        }
        const unsigned generation = m_parts.wide.generation();
        WideDepthOptions options = m_parts.wide.options();
        options.threads = static_cast<int>(std::max(1U, processorCount() - 1));  // the last one is the camera's
        const Clock::time_point begin = Clock::now();
        state->worker.run([&] {
          if (!state->engine || generation != state->generation || state->left.size() != state->eye) {
            state->generation = generation;
            state->eye = state->left.size();
            state->engine.emplace(*m_parts.calibration, state->eye, options);
          }
          state->engine->compute(state->left, state->right, state->image);
        });
        m_parts.times.add("wide depth", millisecondsSince(begin));
        m_parts.wide.setFindings(WideState::Findings{measuredPercent(state->image), state->engine->rowCorrection()});
        if (m_parts.feed.isWanted(View::range)) {
          state->publisher.showRange(state->image, timestamp);
        }
        if (m_parts.feed.isWanted(View::rangeColor)) {
          state->publisher.show(View::rangeColor, rangeColors(state->image.range, options.nearest, options.farthest),
                                timestamp);
        }
        return true;
      },
      wideViews);
}

}  // namespace stereo::app
