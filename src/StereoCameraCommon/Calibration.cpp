// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <memory>
#include <new>

#include "StereoCamera.hpp"
#include "src/StereoCameraCommon/LogReports.hpp"
#include "src/StereoCameraCommon/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/Storage.hpp"
#include "src/core/Numbers.hpp"

bool StereoCamera::loadCalibParams(std::string fileName) {
  try {
    const std::unique_ptr<cv::FileStorage> reader = stereo::openForReading(fileName, stereo::EmptyFile::malformed);
    if (reader == nullptr) {
      std::cerr << "Read File: " << fileName << " Error!" << std::endl;
      return false;
    }
    // A matrix that turns out malformed half-way must not leave its first half in a member.
    cv::Mat serial;
    cv::Mat position;
    serial = stereo::readMatrix(*reader, "SerialNumber");
    position = stereo::readMatrix(*reader, "PositonNumber");
    m_leftXi = stereo::readMatrix(*reader, "LeftXi");
    m_leftIntrinsic = stereo::readMatrix(*reader, "LeftIntrinsicMatrix");
    m_leftDistortion = stereo::readMatrix(*reader, "LeftDistortionCoefficients");
    m_leftRotation = stereo::readMatrix(*reader, "LeftRotation");
    m_rightXi = stereo::readMatrix(*reader, "RightXi");
    m_rightIntrinsic = stereo::readMatrix(*reader, "RightIntrinsicMatrix");
    m_rightDistortion = stereo::readMatrix(*reader, "RightDistortionCoefficients");
    m_translation = stereo::readMatrix(*reader, "Translation");
    m_rightRotation = stereo::readMatrix(*reader, "RightRotation");
    for (const cv::Mat* value :
         {&serial, &position, &m_leftIntrinsic, &m_translation, &m_leftXi, &m_leftRotation, &m_leftDistortion,
          &m_rightXi, &m_rightRotation, &m_rightIntrinsic, &m_rightDistortion}) {
      if (value->empty()) {
        reader->release();
        return false;
      }
    }
    const int serialNumber = stereo::core::toInt(stereo::core::numberAt(serial, 0));
    const int posNumber = stereo::core::toInt(stereo::core::numberAt(position, 0));
    stereo::setRelaxed(m_serialNumber, serialNumber);
    stereo::setRelaxed(m_posNumber, posNumber);
    reader->release();
    return true;
  } catch (const cv::Exception&) {
    std::cerr << "Read A NULL File, Camera CalibParams not loaded!" << std::endl;
    return false;
  }
}

bool StereoCamera::saveCalibParams(std::string fileName) {
  std::unique_ptr<cv::FileStorage> writer(new (std::nothrow) cv::FileStorage(fileName, cv::FileStorage::WRITE, ""));
  if (writer == nullptr) {
    std::cerr << "Save File: " << fileName << " Error!" << std::endl;
    return false;
  }
  stereo::writeNumber(*writer, "SerialNumber", m_serialNumber);
  stereo::writeNumber(*writer, "PositonNumber", m_posNumber);
  stereo::writeSize(*writer, "RectifyFrameSize", m_rectFrameSize);
  *writer << "LeftXi" << m_leftXi;
  *writer << "LeftIntrinsicMatrix" << m_leftIntrinsic;
  *writer << "LeftDistortionCoefficients" << m_leftDistortion;
  *writer << "LeftRotation" << m_leftRotation;
  *writer << "RightXi" << m_rightXi;
  *writer << "RightIntrinsicMatrix" << m_rightIntrinsic;
  *writer << "RightDistortionCoefficients" << m_rightDistortion;
  *writer << "RightRotation" << m_rightRotation;
  *writer << "Translation" << m_translation;
  stereo::writeReserved(*writer);
  stereo::syncDisks();
  writer->release();
  writer.reset();
  stereo::syncDisks();
  return true;
}

bool StereoCamera::setCalibParams(std::vector<cv::Mat> params, bool isRight) {
  if (params.size() <= 4) {
    stereo::reportError(m_log, "Invalid params format!\n");
    return false;
  }
  (isRight ? m_rightIntrinsic : m_leftIntrinsic) = params[0].clone();
  (isRight ? m_rightDistortion : m_leftDistortion) = params[1].clone();
  (isRight ? m_rightXi : m_leftXi) = params[2].clone();
  (isRight ? m_rightRotation : m_leftRotation) = params[3].clone();
  m_translation = params[4].clone();
  return true;
}

bool StereoCamera::getCalibParams(std::vector<cv::Mat>& params, bool isRight) {
  params.push_back(isRight ? m_rightIntrinsic : m_leftIntrinsic);
  params.push_back(isRight ? m_rightDistortion : m_leftDistortion);
  params.push_back(isRight ? m_rightXi : m_leftXi);
  params.push_back(isRight ? m_rightRotation : m_leftRotation);
  params.push_back(m_translation);
  params.push_back(m_rectCameraMatrix);
  return true;
}
