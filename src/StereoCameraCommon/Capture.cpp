// SPDX-License-Identifier: Apache-2.0
// Starting and stopping capture, the capture worker, and ending a read that does not return.
#include <cstdlib>
#include <memory>
#include <typeinfo>
#include <utility>

#include <unistd.h>

#include <opencv2/core/utility.hpp>

#include "StereoCamera.hpp"
#include "model/CameraFacts.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/Internals.hpp"
#include "src/StereoCameraCommon/LogReports.hpp"
#include "src/core/CapturePass.hpp"
#include "src/core/Numbers.hpp"
#include "src/core/RectifyMap.hpp"
#include "src/system/ImageMemory.hpp"
#include "src/system/SharedSegment.hpp"
#include "src/system/VideoDevice.hpp"

using stereo::loadRelaxed;
using stereo::reportError;
using stereo::reportInfo;
using stereo::storeRelaxed;

namespace {

constexpr useconds_t warmUpPause = 50'000;     // microseconds
constexpr useconds_t publicationPause = 1000;  // microseconds

void scaleIntrinsic(cv::Mat& intrinsic, float scale) {
  // In place: headers that `getCalibParams` returned show the scaled matrix.
  intrinsic.row(0) *= scale;
  intrinsic.row(1) *= scale;
}

// Maps the segment for the worker. Without it, the consumer would wait forever for a camera that seems to work, so
// the whole process ends.
void openSegment(stereo::sys::SharedSegment& segment, float frameScale, key_t key, cv::Size rawFrameSize,
                 SystemLog* log) {
  if (frameScale == 1.0F || frameScale == 0.5F) {
    if (!segment.create(key, stereo::model::segmentBytes(rawFrameSize))) {
      reportError(log, "share memory alloc create failed!\n");
      std::exit(1);
    }
  }
  if (!segment.attach()) {
    reportError(log, "share memory shmat failed!\n");
    std::exit(1);
  }
}

void closeSegment(stereo::sys::SharedSegment& segment, SystemLog* log) {
  if (!segment.detach()) {
    reportError(log, "share memory shmdt failed!\n");
  }
  if (!segment.remove()) {
    reportError(log, "Delete share memory error!");
  }
}

std::chrono::microseconds systemTime() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch());
}

// Attempts to interrupt a read before it is abandoned. Never for a derived class that reads nothing of OpenCV's: its
// read has to end when its device is released.
int maxAttempts(stereo::sys::BackEnd backEnd) {
  switch (backEnd) {
    case stereo::sys::BackEnd::gstreamer:
      return 10;  // about a second: a pipeline that never ran, on a driver that does not wake waiting threads
    case stereo::sys::BackEnd::kernel:
      return 150;  // 15 seconds; OpenCV's own limit is 10
    default:
      return stereo::ReadWatchdog::never;
  }
}

}  // namespace

bool StereoCamera::startCapture(bool useTransmit, bool useShareMemory) {
  if (useShareMemory) {
    m_useShareMemory = true;
  }
  if (useTransmit) {
    m_useTransmit = true;
  }
  const auto frameScale =
      static_cast<float>(static_cast<float>(loadRelaxed(m_rawFrameSize).width) / double{stereo::model::fullFrameWidth});
  // The left intrinsic matrix is not checked here; if only that is missing, scaling it raises the error.
  if (!loadRelaxed(m_rectFrameSize).empty() && !m_translation.empty() && !m_leftXi.empty() && !m_leftRotation.empty() &&
      !m_leftDistortion.empty() && !m_rightXi.empty() && !m_rightRotation.empty() && !m_rightIntrinsic.empty() &&
      !m_rightDistortion.empty()) {
    buildMaps(frameScale);
  }
  reportInfo(m_log, "Initialize parameters OK!\n");
  if (m_captureThread == nullptr) {
    noteDevice();  // while no worker reads the device
  }
  if (m_isOpened) {
    m_internals->deviceWatchdog->resume();
    const std::lock_guard lock(m_frameMutex);
    m_internals->captureStopped = false;
    m_internals->disparityStarved = false;
  }
  // Reserved first, so that nothing can throw between the start of the new worker and saving the old one.
  m_internals->supersededWorkers.reserve(m_internals->supersededWorkers.size() + 1);
  const auto reads = m_internals->deviceWatchdog;
  reads->workerStarts();
  std::thread* worker = nullptr;
  try {
    worker = new std::thread([this, frameScale, reads] {
      try {
        captureWorker(frameScale, *reads);
      } catch (const stereo::ReadWatchdog::Abandoned&) {
        return;  // the camera may no longer exist
      }
      reads->workerEnds();
    });
  } catch (...) {
    reads->workerEnds();  // the thread could not be created
    throw;
  }
  if (m_captureThread != nullptr) {
    m_internals->supersededWorkers.push_back(std::move(*m_captureThread));
    delete m_captureThread;
  }
  m_captureThread = worker;
  return m_captureThread != nullptr;
}

void StereoCamera::buildMaps(float frameScale) {
  const cv::Size size = loadRelaxed(m_rectFrameSize);
  // Check everything before anything changes, so that the host can correct a refused calibration and start again.
  stereo::core::requireEye(m_leftIntrinsic, m_leftDistortion, m_leftRotation);
  stereo::core::requireEye(m_rightIntrinsic, m_rightDistortion, m_rightRotation);
  const double leftXi = stereo::core::scalarOf(m_leftXi);
  const double rightXi = stereo::core::scalarOf(m_rightXi);
  scaleIntrinsic(m_leftIntrinsic, frameScale);
  scaleIntrinsic(m_rightIntrinsic, frameScale);
  const cv::Mat perspective = stereo::core::perspectiveCameraMatrix(size, loadRelaxed(m_hFov));
  const cv::Mat lonLat = stereo::core::lonLatCameraMatrix(size, loadRelaxed(m_lonLatFov));
  {
    const std::lock_guard lock(m_internals->mapMutex);
    m_rectCameraMatrix = perspective;
  }
  // Build new maps and swap them in at the end: readers of a running worker use the old ones meanwhile.
  using stereo::sys::recycledImage;
  cv::Mat rectifyMaps[2][2] = {{recycledImage(), recycledImage()}, {recycledImage(), recycledImage()}};
  cv::Mat lonLatMaps[2][2] = {{recycledImage(), recycledImage()}, {recycledImage(), recycledImage()}};
  initRectifyMap(m_leftIntrinsic, m_leftDistortion, m_leftRotation, perspective, leftXi, leftXi, size, 2,
                 rectifyMaps[0][0], rectifyMaps[0][1]);
  initRectifyMap(m_rightIntrinsic, m_rightDistortion, m_rightRotation, perspective, rightXi, rightXi, size, 2,
                 rectifyMaps[1][0], rectifyMaps[1][1]);
  initRectifyMap(m_leftIntrinsic, m_leftDistortion, m_leftRotation, lonLat, leftXi, 0.0, size, 1, lonLatMaps[0][0],
                 lonLatMaps[0][1]);
  initRectifyMap(m_rightIntrinsic, m_rightDistortion, m_rightRotation, lonLat, rightXi, 0.0, size, 1, lonLatMaps[1][0],
                 lonLatMaps[1][1]);
  const std::lock_guard lock(m_internals->mapMutex);
  for (int eye = 0; eye < 2; ++eye) {
    for (int map = 0; map < 2; ++map) {
      std::swap(m_rectifyMaps[eye][map], rectifyMaps[eye][map]);
      std::swap(m_lonLatMaps[eye][map], lonLatMaps[eye][map]);
    }
  }
}

void StereoCamera::captureWorker(float frameScale, stereo::ReadWatchdog& reads) {
  const auto readFrame = [this, &reads] {
    // Empty before each read: a device that fails without touching its argument must not replay the last frame.
    cv::Mat frame = stereo::sys::recycledImage();
    // Copy the pointer before the read: an abandoned read must not touch the camera.
    if (cv::VideoCapture* const device = m_videoCapture; device != nullptr) {
      reads.run([&frame, device] { device->read(frame); });
    }
    return frame;
  };

  const auto segment = std::make_shared<stereo::sys::SharedSegment>();
  if (m_useShareMemory) {
    openSegment(*segment, frameScale, stereo::core::wrappingSum(getPosNumber(), stereo::model::firstSegmentKey),
                loadRelaxed(m_rawFrameSize), m_log);
    const std::lock_guard lock(m_internals->segmentMutex);
    m_internals->segments.push_back(segment);
  }
  for (int i = 0; i < stereo::model::warmUpReads; ++i) {
    const cv::Mat frame = readFrame();
    if (!frame.empty()) {
      storeRelaxed(m_rawFrameSize, frame.size());
    }
  }
  reportInfo(m_log, "Start capture ...\n");
  usleep(warmUpPause);
  if (m_useTransmit && loadRelaxed(m_transmode) != -1) {
    openStream();
  }

  stereo::core::CapturePass pass;
  while (m_isOpened) {
    const auto start = static_cast<double>(cv::getTickCount());
    const cv::Mat frame = readFrame();
    if (frame.empty()) {
      continue;
    }
    pass.process(frame, loadRelaxed(m_fisheyeRadius));
    if (m_useShareMemory) {
      const std::lock_guard lock(m_internals->segmentMutex);
      segment->offer(pass.left(), static_cast<std::size_t>(frame.rows) * static_cast<std::size_t>(frame.cols >> 1) * 3);
    }
    const auto duration = static_cast<float>(static_cast<double>(cv::getTickCount()) - start);
    m_frameRate = static_cast<float>(cv::getTickFrequency() / duration);

    const std::lock_guard lock(m_frameMutex);
    pass.publish(m_rawFrame.first, m_rawFrame.second);
    const std::chrono::microseconds timestamp = systemTime();
    storeRelaxed(m_rawFrame.timestamp, timestamp);
    m_internals->ownTimestamp = timestamp;
    ++m_internals->publishedFrames;
    m_frameCond.notify_all();
    usleep(publicationPause);  // under the lock: readers copy this frame before the next one can replace it
  }
  reportInfo(m_log, "Exit capture frame worker ...\n");
  if (m_useShareMemory) {
    closeSegment(*segment, m_log);
    const std::lock_guard lock(m_internals->segmentMutex);
    std::erase(m_internals->segments, segment);
  }
}

// Records what a stop needs to know about the device. OpenCV knows the back end only of an open device; for a
// GStreamer pipeline that has broken down since, the earlier record stays.
void StereoCamera::noteDevice() {
  Internals& shared = *m_internals;
  if (m_videoCapture == nullptr) {
    shared.openedDevice = nullptr;
    return;
  }
  const stereo::sys::BackEnd backEnd = stereo::sys::backEndOf(*m_videoCapture);
  if (m_videoCapture != shared.openedDevice) {
    // Created by the constructor, or replaced by a derived class since.
    shared.openedDevice = m_videoCapture;
    shared.backEnd = backEnd;
    shared.openedNode = loadRelaxed(m_deviceNode);
  } else if (backEnd != stereo::sys::BackEnd::foreign || typeid(*m_videoCapture) != typeid(cv::VideoCapture)) {
    shared.backEnd = backEnd;
  }
}

// Interrupts a device read that goes on although a stop has been waiting for a while. Each back end has its own way to
// make a read fail; releasing a device of OpenCV's would free the memory that the read works on.
void StereoCamera::interruptRead(int attempt) {
  if (m_videoCapture == nullptr) {
    return;
  }
  switch (m_internals->backEnd) {
    case stereo::sys::BackEnd::gstreamer:
      if (attempt == 0) {
        stereo::sys::stopPipeline(*m_videoCapture);
      } else {
        stereo::sys::stopStreaming(m_internals->openedNode);
      }
      break;
    case stereo::sys::BackEnd::kernel:
      // If the driver does not wake waiting threads, the read ends at OpenCV's own time limit.
      stereo::sys::stopStreaming(m_internals->openedNode);
      break;
    case stereo::sys::BackEnd::otherOfOpenCv:
      break;  // files and network streams, which have their own time limits
    case stereo::sys::BackEnd::foreign:
      // A derived class, which must accept this during a read.
      if (attempt == 0) {
        m_videoCapture->release();
      }
      break;
  }
}

bool StereoCamera::stopCapture() {
  m_isOpened = false;
  const bool hadWorker = m_captureThread != nullptr;
  if (hadWorker) {
    Internals& shared = *m_internals;
    if (shared.deviceWatchdog->awaitWorkers([this](int attempt) { interruptRead(attempt); },
                                            maxAttempts(shared.backEnd))) {
      m_captureThread->join();
      for (std::thread& worker : shared.supersededWorkers) {
        worker.join();
      }
    } else {
      abandonCapture();
    }
    shared.supersededWorkers.clear();
    delete m_captureThread;
    m_captureThread = nullptr;
    reportInfo(m_log, "Stop get frame done.\n");
  }
  releaseFrameReaders(hadWorker);
  releaseDisparityReadersOfCapture();
  return true;
}

// Abandons a read that does not end, with its thread and device: nothing is freed while it runs. If it returns one day,
// the thread ends and the device is destroyed. The camera gets a closed device instead.
void StereoCamera::abandonCapture() {
  Internals& shared = *m_internals;
  auto closed = std::make_unique<cv::VideoCapture>();
  shared.deviceWatchdog->keep(std::shared_ptr<cv::VideoCapture>(m_videoCapture));
  m_videoCapture = closed.release();
  shared.openedDevice = nullptr;
  shared.deviceWatchdog = std::make_shared<stereo::ReadWatchdog>();
  m_captureThread->detach();
  for (std::thread& worker : shared.supersededWorkers) {
    worker.detach();
  }
  // Do what the worker would have done at its end.
  reportInfo(m_log, "Exit capture frame worker ...\n");
  const std::lock_guard lock(shared.segmentMutex);
  for (const auto& segment : shared.segments) {
    closeSegment(*segment, m_log);
  }
  shared.segments.clear();
}
