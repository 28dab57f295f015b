// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::test::calibrate;
using stereo::test::Document;
using stereo::test::OutputCapture;
using stereo::test::readDocument;
using stereo::test::readFile;
using stereo::test::recordTexts;
using stereo::test::row;
using stereo::test::sameBits;
using stereo::test::someCalibration;
using stereo::test::SyncProbe;
using stereo::test::TempDir;
using stereo::test::TestCamera;
using stereo::test::writeDocument;

namespace {

const char* const malformedMessage = "Read A NULL File, Camera CalibParams not loaded!\n";

// The nine matrices of a camera under the keys of the file, in the file's order.
Document matricesOf(const TestCamera& camera) {
  return {{"LeftXi", camera.m_leftXi},
          {"LeftIntrinsicMatrix", camera.m_leftIntrinsic},
          {"LeftDistortionCoefficients", camera.m_leftDistortion},
          {"LeftRotation", camera.m_leftRotation},
          {"RightXi", camera.m_rightXi},
          {"RightIntrinsicMatrix", camera.m_rightIntrinsic},
          {"RightDistortionCoefficients", camera.m_rightDistortion},
          {"RightRotation", camera.m_rightRotation},
          {"Translation", camera.m_translation}};
}

Document copyOf(const TestCamera& camera) {
  Document copy = matricesOf(camera);
  for (auto& [key, value] : copy) {
    value = value.clone();
  }
  return copy;
}

void expectSame(const Document& actual, const Document& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_EQ(actual[i].first, expected[i].first);
    const bool bothEmpty = actual[i].second.empty() && expected[i].second.empty();
    EXPECT_TRUE(bothEmpty || sameBits(actual[i].second, expected[i].second)) << actual[i].first << actual[i].second;
  }
}

// What a camera with this calibration returns: the two numbers, then the nine matrices.
Document calibrationFile(double serial, double position, int number) {
  const std::vector<cv::Mat> left = someCalibration(number);
  const std::vector<cv::Mat> right = someCalibration(number + 1);
  return {{"SerialNumber", row({serial})},
          {"PositonNumber", row({position})},
          {"LeftXi", left[2]},
          {"LeftIntrinsicMatrix", left[0]},
          {"LeftDistortionCoefficients", left[1]},
          {"LeftRotation", left[3]},
          {"RightXi", right[2]},
          {"RightIntrinsicMatrix", right[0]},
          {"RightDistortionCoefficients", right[1]},
          {"RightRotation", right[3]},
          {"Translation", left[4]}};
}

Document without(Document document, const std::string& key) {
  std::erase_if(document, [&](const auto& entry) { return entry.first == key; });
  return document;
}

Document onlyMatrices(const Document& document) { return without(without(document, "SerialNumber"), "PositonNumber"); }

class Calibration : public testing::TestWithParam<std::string> {
protected:
  std::string path(const std::string& name = "calibration") const { return m_dir.path(name + "." + GetParam()); }

  bool load(const Document& document, std::string* messages = nullptr) {
    writeDocument(path(), document);
    const OutputCapture errors(2);
    const bool loaded = camera.loadCalibParams(path());
    if (messages != nullptr) {
      *messages = errors.ownText();
    } else {
      EXPECT_EQ(errors.ownText(), "");
    }
    return loaded;
  }

  TestCamera camera;

private:
  TempDir m_dir;
};

INSTANTIATE_TEST_SUITE_P(Syntax, Calibration, testing::Values("yml", "xml", "json"),
                         [](const auto& instance) { return instance.param; });

}  // namespace

TEST_P(Calibration, EveryKeyReachesItsMember) {
  const Document document = calibrationFile(77, 5, 1);
  EXPECT_TRUE(load(document));
  expectSame(matricesOf(camera), onlyMatrices(document));
  EXPECT_EQ(camera.m_serialNumber, 77);
  EXPECT_EQ(camera.m_posNumber, 5);
}

TEST_P(Calibration, NumbersAreTruncatedTowardZero) {
  EXPECT_TRUE(load(calibrationFile(12345.9, -3.7, 1)));
  EXPECT_EQ(camera.m_serialNumber, 12345);
  EXPECT_EQ(camera.m_posNumber, -3);
  EXPECT_TRUE(load(calibrationFile(-3.7, 12345.9, 1)));
  EXPECT_EQ(camera.m_serialNumber, -3);
  EXPECT_EQ(camera.m_posNumber, 12345);
}

// No message, and what is there is used.
TEST_P(Calibration, AnyMissingValueFailsAndEmptiesItsMemberOnly) {
  calibrate(camera);
  for (const auto& [missing, ignored] : calibrationFile(0, 0, 0)) {
    calibrate(camera);
    camera.m_serialNumber = 8;
    camera.m_posNumber = 9;
    const Document document = without(calibrationFile(77, 5, 10), missing);
    EXPECT_FALSE(load(document)) << missing;
    Document expected = calibrationFile(77, 5, 10);
    for (auto& [key, value] : expected) {
      if (key == missing) {
        value.release();
      }
    }
    expectSame(matricesOf(camera), onlyMatrices(expected));
    EXPECT_EQ(camera.m_serialNumber, 8) << missing;
    EXPECT_EQ(camera.m_posNumber, 9) << missing;
  }
}

TEST_P(Calibration, OrdinarySpellingOfThePositionIsNotRead) {
  Document document = calibrationFile(77, 5, 1);
  document[1].first = "PositionNumber";
  EXPECT_FALSE(load(document));
  EXPECT_EQ(camera.m_posNumber, 0);
  EXPECT_EQ(camera.m_serialNumber, 0);
}

TEST_P(Calibration, RectifiedSizeAndReservedAreNotRead) {
  camera.m_rectFrameSize = cv::Size(3, 4);
  Document document = calibrationFile(77, 5, 1);
  document.emplace_back("RectifyFrameSize", row({640, 480}));
  document.emplace_back("Reserved", row({1, 2, 3}));
  EXPECT_TRUE(load(document));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(3, 4));
  EXPECT_TRUE(camera.m_rectCameraMatrix.empty());
}

// Shapes and types are checked where they are used.
TEST_P(Calibration, MatricesAreTakenAsTheyAre) {
  Document document = calibrationFile(77, 5, 1);
  document[2].second = (cv::Mat_<float>(2, 2) << 1.5F, 2.5F, 3.5F, 4.5F);
  document[9].second = (cv::Mat_<int>(1, 3) << 1, 2, 3);
  document[10].second = cv::Mat(1, 2, CV_64FC3, cv::Scalar(1, 2, 3));
  EXPECT_TRUE(load(document));
  expectSame(matricesOf(camera), onlyMatrices(document));
}

TEST_P(Calibration, MissingFileEmptiesTheMatricesWithoutAWord) {
  calibrate(camera);
  camera.m_serialNumber = 8;
  camera.m_posNumber = 9;
  const OutputCapture errors(2);
  EXPECT_FALSE(camera.loadCalibParams(path("missing")));
  EXPECT_EQ(errors.ownText(), "");
  for (const auto& [key, value] : matricesOf(camera)) {
    EXPECT_TRUE(value.empty()) << key;
  }
  EXPECT_EQ(camera.m_serialNumber, 8);
  EXPECT_EQ(camera.m_posNumber, 9);
}

// Values are read in the order xi, intrinsic, distortion, rotation of the left eye, the same of the right but for the
// translation before its rotation: what comes before the malformed one is new, the rest is as it was.
TEST_P(Calibration, MalformedValueStopsReadingWithAMessage) {
  const std::string order[] = {"SerialNumber",
                               "PositonNumber",
                               "LeftXi",
                               "LeftIntrinsicMatrix",
                               "LeftDistortionCoefficients",
                               "LeftRotation",
                               "RightXi",
                               "RightIntrinsicMatrix",
                               "RightDistortionCoefficients",
                               "Translation",
                               "RightRotation"};
  for (std::size_t bad = 0; bad < std::size(order); ++bad) {
    calibrate(camera);
    camera.m_serialNumber = 8;
    std::map<std::string, cv::Mat> expected;
    for (const auto& [key, value] : copyOf(camera)) {
      expected[key] = value;
    }
    const Document document = calibrationFile(77, 5, 10);
    {
      cv::FileStorage storage(path(), cv::FileStorage::WRITE);
      for (const auto& [key, value] : document) {
        const auto place = std::find(std::begin(order), std::end(order), key) - std::begin(order);
        if (place == static_cast<std::ptrdiff_t>(bad)) {
          storage << key << 1.5;  // a number instead of a matrix
        } else {
          storage << key << value;
        }
        if (place < static_cast<std::ptrdiff_t>(bad)) {
          expected[key] = value;
        }
      }
    }
    const OutputCapture errors(2);
    EXPECT_FALSE(camera.loadCalibParams(path()));
    EXPECT_EQ(errors.ownText(), malformedMessage) << order[bad];
    for (const auto& [key, value] : matricesOf(camera)) {
      EXPECT_TRUE(sameBits(value, expected[key])) << key << " with malformed " << order[bad];
    }
    EXPECT_EQ(camera.m_serialNumber, 8);
  }
}

TEST_P(Calibration, IsSavedAsMatricesInItsOrder) {
  calibrate(camera);
  camera.m_serialNumber = 123456789;
  camera.m_posNumber = -2;
  camera.m_rectFrameSize = cv::Size(320, 240);
  const SyncProbe sync(path());
  const OutputCapture errors(2);
  EXPECT_TRUE(camera.saveCalibParams(path()));
  EXPECT_EQ(errors.ownText(), "");
  Document expected = {
      {"SerialNumber", row({123456789})}, {"PositonNumber", row({-2})}, {"RectifyFrameSize", row({320, 240})}};
  for (const auto& entry : matricesOf(camera)) {
    expected.push_back(entry);
  }
  expected.emplace_back("Reserved", cv::Mat(cv::Mat::eye(3, 3, CV_64F)));
  expectSame(readDocument(path()), expected);
  // Once before the file is closed and once when it is complete. Nobody looks at the command's failure.
  const std::vector<std::size_t> lengths = sync.lengths();
  ASSERT_EQ(lengths.size(), 2U);
  EXPECT_LT(lengths[0], lengths[1]);
  EXPECT_EQ(lengths[1], readFile(path()).size());
}

TEST_P(Calibration, SavedFileRestoresItBitForBit) {
  calibrate(camera);
  camera.m_leftRotation.at<double>(0, 0) = 0.1 + 0.2;
  camera.m_leftRotation.at<double>(0, 1) = 5e-324;
  camera.m_leftRotation.at<double>(0, 2) = 1.7976931348623157e308;
  camera.m_leftRotation.at<double>(1, 0) = 1.0 / 3.0;
  camera.m_serialNumber = 2147483647;
  camera.m_posNumber = -2147483647 - 1;
  camera.m_rectFrameSize = cv::Size(320, 240);
  const SyncProbe sync(path());
  ASSERT_TRUE(camera.saveCalibParams(path()));
  TestCamera other;
  EXPECT_TRUE(other.loadCalibParams(path()));
  expectSame(matricesOf(other), matricesOf(camera));
  EXPECT_EQ(other.m_serialNumber, 2147483647);
  EXPECT_EQ(other.m_posNumber, -2147483647 - 1);
  EXPECT_EQ(other.m_rectFrameSize, cv::Size(0, 0));
}

TEST_P(Calibration, UncalibratedCameraSavesEmptyMatricesThatFailToLoad) {
  const SyncProbe sync(path());
  EXPECT_TRUE(camera.saveCalibParams(path()));
  const OutputCapture errors(2);
  EXPECT_FALSE(camera.loadCalibParams(path()));
  EXPECT_EQ(errors.ownText(), "");
}

TEST_P(Calibration, SavingToAPathThatCannotBeWrittenWritesNothingAndSaysTrue) {
  calibrate(camera);
  const std::string missing = path("missing/calibration");
  const SyncProbe sync(missing);
  const OutputCapture errors(2);
  EXPECT_TRUE(camera.saveCalibParams(missing));
  EXPECT_FALSE(std::filesystem::exists(missing));
  EXPECT_EQ(errors.ownText(), "");
}

// Starting scales the intrinsic matrices to the raw frame; they are saved scaled.
TEST_P(Calibration, StartScalesWhatIsReadAndSaved) {
  calibrate(camera);
  const Document before = copyOf(camera);
  camera.m_rawFrameSize = cv::Size(928, 400);
  camera.m_rectFrameSize = cv::Size(16, 12);
  ASSERT_TRUE(camera.startCapture(false, false));
  camera.stopCapture();
  Document expected = before;
  for (const std::size_t intrinsic : {1U, 5U}) {
    expected[intrinsic].second.rowRange(0, 2) *= 0.5;
  }
  expectSame(matricesOf(camera), expected);
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, false);
  EXPECT_TRUE(sameBits(params[0], expected[1].second));
  camera.getCalibParams(params, true);
  EXPECT_TRUE(sameBits(params[6], expected[5].second));
  EXPECT_EQ(params[5].size(), cv::Size(3, 3));
  const SyncProbe sync(path());
  ASSERT_TRUE(camera.saveCalibParams(path()));
  const Document saved = readDocument(path());
  EXPECT_TRUE(sameBits(saved[4].second, expected[1].second));
  EXPECT_TRUE(sameBits(saved[8].second, expected[5].second));
}

TEST(CalibrationVector, NeedsFiveMatrices) {
  TestCamera camera;
  calibrate(camera);
  const Document before = copyOf(camera);
  for (const std::size_t size : {0U, 1U, 4U}) {
    std::vector<cv::Mat> params = someCalibration(5);
    params.resize(size);
    const OutputCapture errors(2);
    EXPECT_FALSE(camera.setCalibParams(params, size == 1));
    EXPECT_EQ(recordTexts(errors.text()), std::vector<std::string>{"Invalid params format!\n"});
    EXPECT_NE(errors.text().find(" [StereoCamera] "), std::string::npos);
    expectSame(matricesOf(camera), before);
  }
}

TEST(CalibrationVector, SetsOneEyeAndTheTranslation) {
  for (const bool isRight : {false, true}) {
    TestCamera camera;
    calibrate(camera);
    Document expected = copyOf(camera);
    std::vector<cv::Mat> params = someCalibration(5);
    params.resize(isRight ? 7 : 5, row({9, 9}));  // what stands behind the fifth is ignored
    const std::size_t eye = isRight ? 4 : 0;
    expected[eye].second = params[2];
    expected[eye + 1].second = params[0];
    expected[eye + 2].second = params[1];
    expected[eye + 3].second = params[3];
    expected[8].second = params[4];
    EXPECT_TRUE(camera.setCalibParams(params, isRight));
    expectSame(matricesOf(camera), expected);
    EXPECT_TRUE(camera.m_rectCameraMatrix.empty());
    // Deep copies: later changes to the host's matrices don't reach the camera.
    const Document kept = copyOf(camera);
    for (cv::Mat& matrix : params) {
      matrix.setTo(-1);
    }
    expectSame(matricesOf(camera), kept);
  }
}

TEST(CalibrationVector, GetsSixHeadersThatShareTheCamerasPixels) {
  TestCamera camera;
  calibrate(camera);
  std::vector<cv::Mat> params;
  EXPECT_TRUE(camera.getCalibParams(params, false));
  ASSERT_EQ(params.size(), 6U);
  EXPECT_TRUE(params[5].empty());  // built by the first start
  camera.m_rectCameraMatrix = cv::Mat::eye(3, 3, CV_64F);
  EXPECT_TRUE(camera.getCalibParams(params, true));
  ASSERT_EQ(params.size(), 12U);
  const cv::Mat* const members[] = {&camera.m_leftIntrinsic,  &camera.m_leftDistortion,  &camera.m_leftXi,
                                    &camera.m_leftRotation,   &camera.m_translation,     nullptr,
                                    &camera.m_rightIntrinsic, &camera.m_rightDistortion, &camera.m_rightXi,
                                    &camera.m_rightRotation,  &camera.m_translation,     &camera.m_rectCameraMatrix};
  for (std::size_t i = 0; i < 12; ++i) {
    EXPECT_EQ(params[i].data, members[i] != nullptr ? members[i]->data : nullptr) << i;
  }
  params[0].at<double>(0, 0) = 1234.5;
  EXPECT_EQ(camera.m_leftIntrinsic.at<double>(0, 0), 1234.5);
}

TEST(CalibrationVector, RoundTripsThroughTheSameCamera) {
  TestCamera camera;
  calibrate(camera);
  const Document before = copyOf(camera);
  for (const bool isRight : {false, true}) {
    std::vector<cv::Mat> params;
    camera.getCalibParams(params, isRight);
    EXPECT_TRUE(camera.setCalibParams(params, isRight));
  }
  expectSame(matricesOf(camera), before);
}
