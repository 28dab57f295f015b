// SPDX-License-Identifier: Apache-2.0
// The calibration: file, setter and getter.
#include <iostream>
#include <memory>
#include <new>

#include "StereoCamera.hpp"
#include "model/FileKeys.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/LogReports.hpp"
#include "src/StereoCameraCommon/Storage.hpp"
#include "src/core/Numbers.hpp"

namespace keys = stereo::model::keys;

bool StereoCamera::loadCalibParams(std::string fileName) {
  try {
    const std::unique_ptr<cv::FileStorage> reader = stereo::openForReading(fileName, stereo::EmptyFile::malformed);
    if (reader == nullptr) {
      std::cerr << "Read File: " << fileName << " Error!" << std::endl;
      return false;
    }
    // `readMatrix` reads into a local: a malformed matrix must not leave its first half in a member.
    cv::Mat serial;
    cv::Mat position;
    serial = stereo::readMatrix(*reader, keys::serialNumber);
    position = stereo::readMatrix(*reader, keys::posNumber);
    m_leftXi = stereo::readMatrix(*reader, keys::leftXi);
    m_leftIntrinsic = stereo::readMatrix(*reader, keys::leftIntrinsic);
    m_leftDistortion = stereo::readMatrix(*reader, keys::leftDistortion);
    m_leftRotation = stereo::readMatrix(*reader, keys::leftRotation);
    m_rightXi = stereo::readMatrix(*reader, keys::rightXi);
    m_rightIntrinsic = stereo::readMatrix(*reader, keys::rightIntrinsic);
    m_rightDistortion = stereo::readMatrix(*reader, keys::rightDistortion);
    m_translation = stereo::readMatrix(*reader, keys::translation);
    m_rightRotation = stereo::readMatrix(*reader, keys::rightRotation);
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
    stereo::storeRelaxed(m_serialNumber, serialNumber);
    stereo::storeRelaxed(m_posNumber, posNumber);
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
  stereo::writeNumber(*writer, keys::serialNumber, m_serialNumber);
  stereo::writeNumber(*writer, keys::posNumber, m_posNumber);
  stereo::writeSize(*writer, keys::rectifyFrameSize, m_rectFrameSize);
  *writer << keys::leftXi << m_leftXi;
  *writer << keys::leftIntrinsic << m_leftIntrinsic;
  *writer << keys::leftDistortion << m_leftDistortion;
  *writer << keys::leftRotation << m_leftRotation;
  *writer << keys::rightXi << m_rightXi;
  *writer << keys::rightIntrinsic << m_rightIntrinsic;
  *writer << keys::rightDistortion << m_rightDistortion;
  *writer << keys::rightRotation << m_rightRotation;
  *writer << keys::translation << m_translation;
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
