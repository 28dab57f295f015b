// SPDX-License-Identifier: Apache-2.0
// Calibration files: whatever is in one, loading it ends in one of the outcomes that are promised, and what was loaded
// survives being handed over, saved and loaded again.
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "tests/campaigns/fuzz/Documents.hpp"
#include "tests/campaigns/fuzz/Target.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::fuzz::Document;
using stereo::fuzz::extensions;
using stereo::fuzz::Messages;
using stereo::fuzz::require;
using stereo::test::TestCamera;

namespace {

constexpr int matrixCount = 9;

// In the order in which a load takes them over.
cv::Mat* matrixOf(TestCamera& camera, int number) {
  cv::Mat* const matrices[matrixCount] = {&camera.m_leftXi,          &camera.m_leftIntrinsic, &camera.m_leftDistortion,
                                          &camera.m_leftRotation,    &camera.m_rightXi,       &camera.m_rightIntrinsic,
                                          &camera.m_rightDistortion, &camera.m_translation,   &camera.m_rightRotation};
  return matrices[number];
}

// One matrix for all, so that what a load replaced can be told from what it left alone.
const cv::Mat& knownMatrix() {
  static const cv::Mat known(1, 1, CV_64F, cv::Scalar(7.25));
  return known;
}

void setKnownValues(TestCamera& camera) {
  for (int k = 0; k < matrixCount; ++k) {
    *matrixOf(camera, k) = knownMatrix();
  }
  camera.m_serialNumber = 801;
  camera.m_posNumber = 802;
}

bool isKnown(const cv::Mat& matrix) { return matrix.data == knownMatrix().data; }

template <typename T>
bool sameNumbers(const cv::Mat& a, const cv::Mat& b) {
  const cv::Mat_<T> flatA = a.reshape(1, 1);
  const cv::Mat_<T> flatB = b.reshape(1, 1);
  for (int k = 0; k < flatA.cols; ++k) {
    const T x = flatA(0, k);
    const T y = flatB(0, k);
    if (x != y && !(std::isnan(x) && std::isnan(y))) {
      return false;
    }
  }
  return true;
}

// Same shape, type and numbers. Files keep neither the sign of a zero nor what distinguishes one NaN from another.
bool sameMatrix(const cv::Mat& a, const cv::Mat& b) {
  if (a.size != b.size || a.type() != b.type()) {
    return false;
  }
  switch (a.depth()) {
    case CV_64F:
      return sameNumbers<double>(a, b);
    case CV_32F:
      return sameNumbers<float>(a, b);
    case CV_16F: {
      cv::Mat wideA;
      cv::Mat wideB;
      a.convertTo(wideA, CV_32F);
      b.convertTo(wideB, CV_32F);
      return sameNumbers<float>(wideA, wideB);
    }
    default:
      return std::equal(a.datastart, a.dataend, b.datastart);
  }
}

// What a host does with a calibration that it loaded: takes it, hands it to another camera, has that save it.
void use(TestCamera& camera, TestCamera& next, const Document& saved) {
  for (const bool isRight : {false, true}) {
    std::vector<cv::Mat> params;
    require(camera.getCalibParams(params, isRight) && params.size() == 6, "six matrices are handed out");
    require(next.setCalibParams(params, isRight), "what is handed out can be handed over");
  }
  for (int k = 0; k < matrixCount; ++k) {
    require(sameMatrix(*matrixOf(camera, k), *matrixOf(next, k)), "matrices are handed over as they are");
  }
  next.m_serialNumber = camera.m_serialNumber;
  next.m_posNumber = camera.m_posNumber;
  const int syncs = stereo::fuzz::syncsAskedFor();
  const Messages messages;
  require(next.saveCalibParams(saved.path()), "a calibration can be saved");
  require(stereo::fuzz::syncsAskedFor() == syncs + 2, "the disks are synchronised twice");
  setKnownValues(next);
  require(next.loadCalibParams(saved.path()), "a calibration that was saved can be loaded");
  require(messages.text().empty(), "nothing is said about it");
  for (int k = 0; k < matrixCount; ++k) {
    require(sameMatrix(*matrixOf(camera, k), *matrixOf(next, k)), "what was saved is what is loaded");
  }
  require(next.m_serialNumber == camera.m_serialNumber && next.m_posNumber == camera.m_posNumber,
          "serial and position number survive");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = (stereo::fuzz::prepareOpenCv(), true);
  static const Document document("calibration");
  static const Document saved[] = {Document("saved.yml"), Document("saved.xml"), Document("saved.json")};
  static TestCamera camera;
  static TestCamera next;
  require(prepared, "OpenCV is prepared");

  const std::string path = document.write(data, size);
  setKnownValues(camera);
  bool loaded = false;
  {
    const Messages messages;
    loaded = camera.loadCalibParams(path);
    if (loaded) {
      require(messages.text().empty(), "nothing is said about a file that loads");
      for (int k = 0; k < matrixCount; ++k) {
        require(!matrixOf(camera, k)->empty(), "no matrix is missing");
      }
    } else {
      require(camera.m_serialNumber == 801 && camera.m_posNumber == 802, "the numbers come last");
      if (messages.text().empty()) {
        for (int k = 0; k < matrixCount; ++k) {
          require(!isKnown(*matrixOf(camera, k)), "every matrix is what the file has, or empty");
        }
      } else {
        require(messages.text() == "Read A NULL File, Camera CalibParams not loaded!\n", "one message, that one");
        // What was read before the malformed one is kept; what comes after it is as it was.
        bool replaced = true;
        for (int k = 0; k < matrixCount; ++k) {
          const bool now = !isKnown(*matrixOf(camera, k));
          require(replaced || !now, "a load stops at the first malformed matrix");
          replaced = now;
        }
      }
    }
  }
  if (loaded) {
    use(camera, next, saved[size % std::size(extensions)]);
  }
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t mostBytes,
                                               unsigned int seed) {
  static const std::vector<std::string_view> names = {"SerialNumber",
                                                      "PositonNumber",
                                                      "LeftXi",
                                                      "LeftIntrinsicMatrix",
                                                      "LeftDistortionCoefficients",
                                                      "LeftRotation",
                                                      "RightXi",
                                                      "RightIntrinsicMatrix",
                                                      "RightDistortionCoefficients",
                                                      "RightRotation",
                                                      "Translation"};
  return stereo::fuzz::mutateDocument(data, size, mostBytes, seed, names);
}
