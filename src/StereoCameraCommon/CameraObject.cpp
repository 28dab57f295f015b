// SPDX-License-Identifier: Apache-2.0
// Construction, destruction, setters and getters.
#include <iostream>
#include <new>
#include <utility>

#include "StereoCamera.hpp"
#include "SystemLog.hpp"
#include "model/CameraFacts.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/Internals.hpp"
#include "src/StereoCameraCommon/LogReports.hpp"

using stereo::loadRelaxed;
using stereo::storeRelaxed;

// Every public constructor delegates to this one, so that the destructor runs if a later step throws.
StereoCamera::StereoCamera(std::unique_ptr<Internals> internals) : m_internals(std::move(internals)) {}

StereoCamera::StereoCamera() : StereoCamera(0) {}

StereoCamera::StereoCamera(int deviceNode) : StereoCamera(std::make_unique<Internals>()) {
  m_isOpened = false;
  m_deviceNode = deviceNode;
  m_logLevel = 1;
  if (!createLog()) {
    return;
  }
  if (!createDevice()) {
    m_log->runTimeError("Init Camera %d Error!\n", m_deviceNode);
    dropLog();
    return;
  }
  if (m_videoCapture->isOpened()) {
    m_isOpened = true;
  }
}

StereoCamera::StereoCamera(std::string settingsPath) : StereoCamera(std::make_unique<Internals>()) {
  m_isOpened = false;
  if (!StereoCamera::loadConfig(settingsPath)) {
    // There is no log yet, because its level is one of the settings, so the report goes to standard error.
    std::cerr << "Load " << settingsPath << " error!" << std::endl;
    return;
  }
  if (!createLog()) {
    return;
  }
  if (!createDevice()) {
    m_log->runTimeError("Init camera object error!\n");
    dropLog();
    return;
  }
  // The device's answers are not reliable; its frames show what it made of these.
  m_videoCapture->set(cv::CAP_PROP_FRAME_WIDTH, m_rawFrameSize.width);
  m_videoCapture->set(cv::CAP_PROP_FRAME_HEIGHT, m_rawFrameSize.height);
  m_videoCapture->set(cv::CAP_PROP_FPS, m_frameRate);
  if (m_videoCapture->isOpened()) {
    m_isOpened = true;
  }
}

StereoCamera::~StereoCamera() {
  m_isOpened = false;
  dropLog();
  delete m_videoCapture;
  m_videoCapture = nullptr;
  // If a worker still runs, its thread object is joinable, and destroying that ends the process.
  delete m_captureThread;
  m_captureThread = nullptr;
  delete m_computeThread;
  m_computeThread = nullptr;
}

bool StereoCamera::createLog() {
  m_log = new (std::nothrow) SystemLog(m_logName);
  if (m_log == nullptr) {
    std::cerr << "Init Camera Log Error!" << std::endl;
    return false;
  }
  m_log->setLogLevel(m_logLevel);
  return true;
}

void StereoCamera::dropLog() {
  delete m_log;
  m_log = nullptr;
}

bool StereoCamera::createDevice() {
  m_videoCapture = new (std::nothrow) cv::VideoCapture(m_deviceNode, cv::CAP_ANY);
  noteDevice();
  return m_videoCapture != nullptr;
}

bool StereoCamera::isOpened() { return m_isOpened; }

bool StereoCamera::setLogLevel(int level) {
  storeRelaxed(m_logLevel, level);
  return level >= 0;
}

bool StereoCamera::setPosNumber(int posNumber) {
  storeRelaxed(m_posNumber, posNumber);
  return true;
}

bool StereoCamera::setSerialNumber(int serialNumber) {
  storeRelaxed(m_serialNumber, serialNumber);
  return true;
}

bool StereoCamera::setRawFrameRate(int framesPerSecond) {
  const auto rate = static_cast<float>(framesPerSecond);
  m_frameRate = rate;
  if (m_videoCapture == nullptr) {
    return false;
  }
  m_videoCapture->set(cv::CAP_PROP_FPS, rate);
  return true;
}

bool StereoCamera::setRawFrameSize(cv::Size size) {
  if (!stereo::model::isFrameSize(size)) {
    stereo::reportError(m_log, "Image size must be 1856×800 or 928×400!\n");
    return false;
  }
  storeRelaxed(m_rawFrameSize, size);
  if (m_videoCapture == nullptr) {
    return false;
  }
  m_videoCapture->set(cv::CAP_PROP_FRAME_WIDTH, size.width);
  m_videoCapture->set(cv::CAP_PROP_FRAME_HEIGHT, size.height);
  storeRelaxed(m_fisheyeRadius, size.width >> 2);
  return true;
}

bool StereoCamera::setRectFrameSize(cv::Size size) {
  storeRelaxed(m_rectFrameSize, size);
  return size.width != 0;
}

int StereoCamera::getLogLevel() const { return loadRelaxed(m_logLevel); }

int StereoCamera::getDeviceNode() const { return loadRelaxed(m_deviceNode); }

int StereoCamera::getPosNumber() const { return loadRelaxed(m_posNumber); }

int StereoCamera::getSerialNumber() const { return loadRelaxed(m_serialNumber); }

float StereoCamera::getRawFrameRate() const { return m_frameRate; }

cv::Size StereoCamera::getRawFrameSize() const { return loadRelaxed(m_rawFrameSize); }
