// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <type_traits>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "SystemLog.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::test::OutputCapture;
using stereo::test::recordTexts;
using stereo::test::TestCamera;
using Settings = std::vector<std::pair<int, double>>;

namespace {

void expectNoFrameYet(const StereoCamera::TimeFrame& frame) {
  EXPECT_TRUE(frame.first.empty());
  EXPECT_TRUE(frame.second.empty());
  EXPECT_EQ(frame.timestamp, std::chrono::microseconds(0));
}

}  // namespace

TEST(CameraObject, IsPolymorphicAndNotCopied) {
  static_assert(std::has_virtual_destructor_v<StereoCamera>);
  static_assert(!std::is_copy_constructible_v<StereoCamera> && !std::is_copy_assignable_v<StereoCamera>);
  static_assert(!std::is_move_constructible_v<StereoCamera> && !std::is_move_assignable_v<StereoCamera>);
  static_assert(std::is_default_constructible_v<StereoCamera> && std::is_constructible_v<StereoCamera, int> &&
                std::is_constructible_v<StereoCamera, std::string>);
  static_assert(std::is_same_v<std::chrono::microseconds::rep, std::int64_t>);
  // The virtual table comes first, since there is no base class.
  TestCamera camera;
  EXPECT_EQ(static_cast<void*>(&camera), static_cast<void*>(static_cast<StereoCamera*>(&camera)));
}

TEST(CameraObject, EveryMemberHasItsDefault) {
  const TestCamera camera;
  EXPECT_EQ(camera.m_fisheyeRadius, 0);
  EXPECT_EQ(camera.m_algorithm, 0);
  EXPECT_EQ(camera.m_logLevel, 1);
  EXPECT_EQ(camera.m_posNumber, 0);
  EXPECT_EQ(camera.m_serialNumber, 0);
  EXPECT_EQ(camera.m_threshold, 120);
  EXPECT_EQ(camera.getRawFrameRate(), 30.0F);
  EXPECT_EQ(camera.m_ipLastSegment, 15);
  EXPECT_FALSE(camera.m_useShareMemory);
  EXPECT_FALSE(camera.m_useTransmit);
  EXPECT_FALSE(camera.m_isOpened);
  EXPECT_FALSE(camera.m_isComputing);
  EXPECT_EQ(camera.m_maxDepth, 1.0F);
  EXPECT_EQ(camera.m_minDepth, 0.05F);
  EXPECT_EQ(camera.m_transmode, -1);
  EXPECT_EQ(camera.m_transrate, 0.0);
  EXPECT_EQ(camera.m_hFov, 90.0);
  EXPECT_EQ(camera.m_defaultHFov, 90.0);
  EXPECT_EQ(camera.m_fisheyeFov, 222.0);
  EXPECT_EQ(camera.m_lonLatFov, 180.0);
  EXPECT_EQ(camera.m_depthmode, 1);
  EXPECT_FALSE(camera.m_videoWriter.isOpened());
  EXPECT_EQ(camera.m_rawFrameSize, cv::Size(0, 0));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(0, 0));
  expectNoFrameYet(camera.m_rawFrame);
  expectNoFrameYet(camera.m_disparityFrame);
  for (const cv::Mat* matrix : {&camera.m_leftXi,
                                &camera.m_leftRotation,
                                &camera.m_leftIntrinsic,
                                &camera.m_leftDistortion,
                                &camera.m_rightXi,
                                &camera.m_rightRotation,
                                &camera.m_rightIntrinsic,
                                &camera.m_rightDistortion,
                                &camera.m_translation,
                                &camera.m_rectCameraMatrix,
                                &camera.m_rectifyMaps[0][0],
                                &camera.m_rectifyMaps[0][1],
                                &camera.m_rectifyMaps[1][0],
                                &camera.m_rectifyMaps[1][1],
                                &camera.m_lonLatMaps[0][0],
                                &camera.m_lonLatMaps[0][1],
                                &camera.m_lonLatMaps[1][0],
                                &camera.m_lonLatMaps[1][1],
                                &camera.m_reservedMats[0],
                                &camera.m_reservedMats[1]}) {
    EXPECT_TRUE(matrix->empty());
  }
  EXPECT_EQ(camera.m_logName, "StereoCamera");
  EXPECT_EQ(camera.m_captureThread, nullptr);
  EXPECT_EQ(camera.m_computeThread, nullptr);
}

namespace {

// Index of a virtual operation in the table. A pointer to one holds its offset from the table's start in bytes,
// plus one; on processors that use a function's lowest address bit, the mark is in its second part. The
// destructor takes two entries.
template <typename Operation>
std::ptrdiff_t placeOf(Operation operation) {
  std::ptrdiff_t parts[2];
  static_assert(sizeof operation == sizeof parts);
  std::memcpy(parts, &operation, sizeof parts);
#if defined(__arm__) || defined(__aarch64__)
  const bool isVirtual = (parts[1] & 1) != 0;
  const std::ptrdiff_t offset = parts[0];
#else
  const bool isVirtual = (parts[0] & 1) != 0;
  const std::ptrdiff_t offset = parts[0] - 1;
#endif
  return isVirtual ? offset / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
}

template <typename Result, typename... Arguments>
std::ptrdiff_t place(Result (StereoCamera::*operation)(Arguments...)) {
  return placeOf(operation);
}

template <typename Result, typename... Arguments>
std::ptrdiff_t placeConst(Result (StereoCamera::*operation)(Arguments...) const) {
  return placeOf(operation);
}

}  // namespace

// Programs built against this table depend on it: no operation may move.
TEST(CameraObject, VirtualOperationsKeepTheirPlaces) {
  using std::chrono::microseconds;
  const std::ptrdiff_t places[] = {
      place<bool>(&StereoCamera::isOpened),
      place<bool, int>(&StereoCamera::setLogLevel),
      place<bool, int>(&StereoCamera::setPosNumber),
      place<bool, int>(&StereoCamera::setSerialNumber),
      place<bool, int>(&StereoCamera::setRawFrameRate),
      place<bool, cv::Size>(&StereoCamera::setRawFrameSize),
      place<bool, cv::Size>(&StereoCamera::setRectFrameSize),
      place<bool, std::vector<cv::Mat>, bool>(&StereoCamera::setCalibParams),
      placeConst<int>(&StereoCamera::getLogLevel),
      placeConst<int>(&StereoCamera::getDeviceNode),
      placeConst<int>(&StereoCamera::getPosNumber),
      placeConst<int>(&StereoCamera::getSerialNumber),
      placeConst<float>(&StereoCamera::getRawFrameRate),
      placeConst<cv::Size>(&StereoCamera::getRawFrameSize),
      place<bool, cv::Mat&, microseconds&>(&StereoCamera::getRawFrame),
      place<bool, cv::Mat&, cv::Mat&, microseconds&>(&StereoCamera::getStereoFrame),
      place<bool, cv::Mat&, bool, microseconds&>(&StereoCamera::getDepthFrame),
      place<void, cv::Mat&, cv::Mat&>(&StereoCamera::getDepthFrame),
      place<bool, std::vector<cv::Vec3f>&, microseconds&>(&StereoCamera::getPointCloud),
      place<bool, std::vector<PCL>&, microseconds&>(&StereoCamera::getPointCloud),
      place<bool, std::vector<cv::Mat>&, bool>(&StereoCamera::getCalibParams),
      place<bool, cv::Mat&, cv::Mat&, cv::Mat&>(&StereoCamera::getRectStereoFrame),
      place<bool, cv::Mat&, cv::Mat&>(&StereoCamera::getRectStereoFrame),
      place<bool, cv::Mat&, cv::Mat&, cv::Mat&, microseconds&>(&StereoCamera::getRectStereoFrame),
      place<bool, std::string>(&StereoCamera::loadConfig),
      place<bool, std::string>(&StereoCamera::loadCalibParams),
      place<bool, std::string>(&StereoCamera::saveConfig),
      place<bool, std::string>(&StereoCamera::saveCalibParams),
      place<bool, bool, bool>(&StereoCamera::startCapture),
      place<bool>(&StereoCamera::startStereoCompute),
      place<bool>(&StereoCamera::stopStereoCompute),
      place<bool>(&StereoCamera::stopCapture),
  };
  for (std::size_t i = 0; i < std::size(places); ++i) {
    EXPECT_EQ(places[i], static_cast<std::ptrdiff_t>(i) + 2) << "operation " << i + 2;
  }
  // Nothing follows them: what a derived class adds comes next.
  class Extended : public StereoCamera {
  public:
    virtual void added() {}
  };
  EXPECT_EQ(placeOf(&Extended::added), static_cast<std::ptrdiff_t>(std::size(places)) + 2);
  EXPECT_EQ(std::size(places), 32U);
}

namespace {

// Members whose type is one of several: a flag or rate may be atomic.
template <typename Member, typename Value>
constexpr bool holds = std::is_same_v<Member, Value> || std::is_same_v<Member, std::atomic<Value>>;

using C = TestCamera;
static_assert(holds<decltype(C::m_fisheyeRadius), int> && holds<decltype(C::m_algorithm), int> &&
              holds<decltype(C::m_logLevel), int> && holds<decltype(C::m_deviceNode), int> &&
              holds<decltype(C::m_posNumber), int> && holds<decltype(C::m_serialNumber), int> &&
              holds<decltype(C::m_threshold), int> && holds<decltype(C::m_ipLastSegment), int> &&
              holds<decltype(C::m_transmode), int> && holds<decltype(C::m_depthmode), int>);
static_assert(holds<decltype(C::m_frameRate), float> && holds<decltype(C::m_maxDepth), float> &&
              holds<decltype(C::m_minDepth), float>);
static_assert(holds<decltype(C::m_useShareMemory), bool> && holds<decltype(C::m_useTransmit), bool> &&
              holds<decltype(C::m_isOpened), bool> && holds<decltype(C::m_isComputing), bool>);
static_assert(holds<decltype(C::m_transrate), double> && holds<decltype(C::m_hFov), double> &&
              holds<decltype(C::m_defaultHFov), double> && holds<decltype(C::m_fisheyeFov), double> &&
              holds<decltype(C::m_lonLatFov), double>);
static_assert(std::is_same_v<decltype(C::m_videoWriter), cv::VideoWriter> &&
              std::is_same_v<decltype(C::m_rawFrameSize), cv::Size> &&
              std::is_same_v<decltype(C::m_rectFrameSize), cv::Size> &&
              std::is_same_v<decltype(C::m_rawFrame), StereoCamera::TimeFrame> &&
              std::is_same_v<decltype(C::m_disparityFrame), StereoCamera::TimeFrame>);
static_assert(std::is_same_v<decltype(C::m_leftXi), cv::Mat> && std::is_same_v<decltype(C::m_translation), cv::Mat> &&
              std::is_same_v<decltype(C::m_rectCameraMatrix), cv::Mat> &&
              std::is_same_v<decltype(C::m_rectifyMaps), cv::Mat[2][2]> &&
              std::is_same_v<decltype(C::m_lonLatMaps), cv::Mat[2][2]> &&
              std::is_same_v<decltype(C::m_reservedMats), cv::Mat[2]>);
static_assert(std::is_same_v<decltype(C::m_log), SystemLog*> && std::is_same_v<decltype(C::m_logName), std::string> &&
              std::is_same_v<decltype(C::m_frameMutex), std::mutex> &&
              std::is_same_v<decltype(C::m_disparityMutex), std::mutex> &&
              std::is_same_v<decltype(C::m_frameCond), std::condition_variable> &&
              std::is_same_v<decltype(C::m_disparityCond), std::condition_variable> &&
              std::is_same_v<decltype(C::m_videoCapture), cv::VideoCapture*> &&
              std::is_same_v<decltype(C::m_captureThread), std::thread*> &&
              std::is_same_v<decltype(C::m_computeThread), std::thread*>);

}  // namespace

TEST(CameraObject, MembersKeepTheirOrder) {
  TestCamera c;
  const void* const members[] = {&c.m_fisheyeRadius,
                                 &c.m_algorithm,
                                 &c.m_logLevel,
                                 &c.m_deviceNode,
                                 &c.m_posNumber,
                                 &c.m_serialNumber,
                                 &c.m_threshold,
                                 &c.m_frameRate,
                                 &c.m_ipLastSegment,
                                 &c.m_useShareMemory,
                                 &c.m_useTransmit,
                                 &c.m_isOpened,
                                 &c.m_isComputing,
                                 &c.m_maxDepth,
                                 &c.m_minDepth,
                                 &c.m_transmode,
                                 &c.m_transrate,
                                 &c.m_hFov,
                                 &c.m_defaultHFov,
                                 &c.m_fisheyeFov,
                                 &c.m_lonLatFov,
                                 &c.m_depthmode,
                                 &c.m_videoWriter,
                                 &c.m_rawFrameSize,
                                 &c.m_rectFrameSize,
                                 &c.m_rawFrame,
                                 &c.m_disparityFrame,
                                 &c.m_leftXi,
                                 &c.m_leftRotation,
                                 &c.m_leftIntrinsic,
                                 &c.m_leftDistortion,
                                 &c.m_rightXi,
                                 &c.m_rightRotation,
                                 &c.m_rightIntrinsic,
                                 &c.m_rightDistortion,
                                 &c.m_translation,
                                 &c.m_rectCameraMatrix,
                                 &c.m_rectifyMaps,
                                 &c.m_lonLatMaps,
                                 &c.m_reservedMats,
                                 &c.m_log,
                                 &c.m_logName,
                                 &c.m_frameMutex,
                                 &c.m_disparityMutex,
                                 &c.m_frameCond,
                                 &c.m_disparityCond,
                                 &c.m_videoCapture,
                                 &c.m_captureThread,
                                 &c.m_computeThread};
  EXPECT_EQ(std::size(members), 49U);
  for (std::size_t i = 1; i < std::size(members); ++i) {
    EXPECT_LT(members[i - 1], members[i]) << "member " << i + 1;
  }
  EXPECT_LE(static_cast<const char*>(members[0]) - reinterpret_cast<const char*>(&c),
            8);  // nothing but the table first
}

TEST(TimeFrame, HoldsTwoImagesAndAStamp) {
  StereoCamera::TimeFrame frame;
  expectNoFrameYet(frame);
  static_assert(std::is_same_v<decltype(frame.first), cv::Mat> && std::is_same_v<decltype(frame.second), cv::Mat> &&
                std::is_same_v<decltype(frame.timestamp), std::chrono::microseconds>);
  EXPECT_LT(static_cast<void*>(&frame.first), static_cast<void*>(&frame.second));
  EXPECT_LT(static_cast<void*>(&frame.second), static_cast<void*>(&frame.timestamp));
}

TEST(Setters, StoreWhatTheyGet) {
  TestCamera camera;
  EXPECT_TRUE(camera.setPosNumber(-7));
  EXPECT_EQ(camera.getPosNumber(), -7);
  EXPECT_TRUE(camera.setPosNumber(0));
  EXPECT_EQ(camera.getPosNumber(), 0);
  EXPECT_TRUE(camera.setSerialNumber(2147483647));
  EXPECT_EQ(camera.getSerialNumber(), 2147483647);
  EXPECT_TRUE(camera.setSerialNumber(-1));
  EXPECT_EQ(camera.m_serialNumber, -1);
  EXPECT_EQ(camera.m_posNumber, 0);
  camera.m_isOpened = true;
  EXPECT_TRUE(camera.isOpened());
  camera.m_isOpened = false;
  EXPECT_FALSE(camera.isOpened());
}

TEST(Setters, LogLevelRefusesButKeepsNegativeLevels) {
  TestCamera camera;
  EXPECT_TRUE(camera.setLogLevel(7));
  EXPECT_EQ(camera.getLogLevel(), 7);
  EXPECT_TRUE(camera.setLogLevel(0));
  EXPECT_EQ(camera.getLogLevel(), 0);
  EXPECT_FALSE(camera.setLogLevel(-1));
  EXPECT_EQ(camera.getLogLevel(), -1);
}

TEST(Setters, LogLevelDoesNotReachTheLiveLog) {
  TestCamera camera;
  camera.setLogLevel(0);
  const OutputCapture out(1);
  camera.m_log->runTimeInfo("progress\n");
  EXPECT_EQ(recordTexts(out.text()), std::vector<std::string>{"progress\n"});
}

TEST(Setters, RectFrameSizeRefusesButKeepsNoWidth) {
  TestCamera camera([](int) { return cv::Mat(); });
  EXPECT_TRUE(camera.setRectFrameSize(cv::Size(464, 400)));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(464, 400));
  EXPECT_FALSE(camera.setRectFrameSize(cv::Size(0, 400)));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(0, 400));
  EXPECT_TRUE(camera.setRectFrameSize(cv::Size(-5, 0)));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(-5, 0));
  EXPECT_TRUE(camera.device().settings().empty());
}

TEST(Setters, FrameRateReachesTheDeviceWhateverItAnswers) {
  for (const bool answer : {true, false}) {
    TestCamera camera([](int) { return cv::Mat(); });
    camera.device().answer = answer;
    EXPECT_TRUE(camera.setRawFrameRate(25));
    EXPECT_EQ(camera.getRawFrameRate(), 25.0F);
    EXPECT_TRUE(camera.setRawFrameRate(-1));
    EXPECT_EQ(camera.getRawFrameRate(), -1.0F);
    // The device gets the rate as it is stored: a float.
    EXPECT_TRUE(camera.setRawFrameRate(16777217));
    EXPECT_EQ(camera.getRawFrameRate(), 16777216.0F);
    EXPECT_EQ(camera.device().settings(),
              (Settings{{cv::CAP_PROP_FPS, 25.0}, {cv::CAP_PROP_FPS, -1.0}, {cv::CAP_PROP_FPS, 16777216.0}}));
  }
}

TEST(Setters, FrameSizeReachesDeviceAndRadiusWhateverTheDeviceAnswers) {
  for (const bool answer : {true, false}) {
    const OutputCapture errors(2);
    TestCamera camera([](int) { return cv::Mat(); });
    camera.device().answer = answer;
    EXPECT_TRUE(camera.setRawFrameSize(cv::Size(1856, 800)));
    EXPECT_EQ(camera.m_fisheyeRadius, 464);
    EXPECT_EQ(camera.getRawFrameSize(), cv::Size(1856, 800));
    EXPECT_TRUE(camera.setRawFrameSize(cv::Size(928, 400)));
    EXPECT_EQ(camera.m_fisheyeRadius, 232);
    EXPECT_EQ(camera.getRawFrameSize(), cv::Size(928, 400));
    EXPECT_EQ(camera.device().settings(), (Settings{{3, 1856.0}, {4, 800.0}, {3, 928.0}, {4, 400.0}}));
    EXPECT_EQ(errors.text(), "");
  }
}

TEST(Setters, FrameSizeRefusesAnyOtherFormat) {
  TestCamera camera([](int) { return cv::Mat(); });
  ASSERT_TRUE(camera.setRawFrameSize(cv::Size(928, 400)));
  const std::size_t settings = camera.device().settings().size();
  for (const cv::Size size : {cv::Size(1280, 720), cv::Size(1856, 400), cv::Size(928, 800), cv::Size(800, 1856),
                              cv::Size(400, 928), cv::Size(0, 0), cv::Size(-928, -400), cv::Size(1856, 801)}) {
    const OutputCapture errors(2);
    EXPECT_FALSE(camera.setRawFrameSize(size)) << size;
    EXPECT_EQ(recordTexts(errors.text()), std::vector<std::string>{"Image size must be 1856\xC3\x97"
                                                                   "800 or 928\xC3\x97"
                                                                   "400!\n"});
    EXPECT_NE(errors.text().find(" [StereoCamera] Image size"), std::string::npos);
    EXPECT_EQ(camera.getRawFrameSize(), cv::Size(928, 400));
    EXPECT_EQ(camera.m_fisheyeRadius, 232);
    EXPECT_EQ(camera.device().settings().size(), settings);
  }
}

// Without a device the values are stored too, except for the radius.
TEST(Setters, AnswerFalseWithoutADevice) {
  TestCamera camera([](int) { return cv::Mat(); });
  ASSERT_TRUE(camera.setRawFrameSize(cv::Size(1856, 800)));
  camera.install(nullptr);
  EXPECT_FALSE(camera.setRawFrameRate(25));
  EXPECT_EQ(camera.getRawFrameRate(), 25.0F);
  EXPECT_FALSE(camera.setRawFrameSize(cv::Size(928, 400)));
  EXPECT_EQ(camera.getRawFrameSize(), cv::Size(928, 400));
  EXPECT_EQ(camera.m_fisheyeRadius, 464);
  EXPECT_FALSE(camera.setRawFrameSize(cv::Size(100, 100)));
  EXPECT_EQ(camera.getRawFrameSize(), cv::Size(928, 400));
}
