// SPDX-License-Identifier: Apache-2.0
// How the judge runs engines: boards and calibrations that are off.
#include <cmath>
#include <functional>
#include <memory>
#include <set>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "bench/wide/RealFrames.hpp"
#include "bench/wide/Simulated.hpp"
#include "sim/BoardCapture.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::wide {
namespace {

using CallEngine = std::function<Measured(const cv::Mat&)>;

/// An engine that is a function of the left eye.
class FunctionEngine : public Engine {
public:
  explicit FunctionEngine(CallEngine call) : m_call(std::move(call)) {}
  Measured measure(const cv::Mat& left, const cv::Mat&) override { return m_call(left); }

private:
  CallEngine m_call;
};

/// Range of each ray up to the plane of a board.
Measured planeRanges(const sim::BoardPlace& place, const View& view, double factor) {
  const cv::Mat rays = view.rays();
  const cv::Vec3d normal(place.rotation(0, 2), place.rotation(1, 2), place.rotation(2, 2));
  Measured measured;
  measured.range = cv::Mat::zeros(view.size, CV_32FC1);
  for (int row = 0; row < view.size.height; ++row) {
    for (int col = 0; col < view.size.width; ++col) {
      const double range = normal.dot(place.position) / normal.dot(cv::Vec3d(rays.at<cv::Vec3f>(row, col)));
      measured.range.at<float>(row, col) = range > 0.0 && range < 10.0 ? static_cast<float>(factor * range) : 0.0F;
    }
  }
  return measured;
}

TEST(WideBoards, RangesAreComparedWithThePoseOfTheBoard) {
  const stereo::test::TempDir folder;
  const sim::Rig rig(2);
  rig.saveCalibration(folder / "calibration.yml");
  const sim::BoardCapture capture(rig, {.rate = 0, .places = 8, .seed = 3});
  constexpr std::size_t boards = 2;
  for (std::size_t n = 0; n < boards; ++n) {
    cv::imwrite(folder / ("board-" + std::to_string(n) + ".png"), capture.render(capture.places()[n]));
  }
  // Oracles that measure a board by its true plane, times a factor. They see one board after the other.
  const std::vector<double> factors{1.0, 1.02, 0.0};
  std::vector<EngineKind> oracles;
  std::vector<std::size_t> next(factors.size());
  for (std::size_t n = 0; n < factors.size(); ++n) {
    oracles.push_back(
        {std::to_string(n), [&, n](const Camera&, const Task& task) {
           const sim::BoardPlace& place = capture.places()[next[n]++];
           return std::make_unique<FunctionEngine>(
               [&factors, n, place, view = task.view](const cv::Mat&) { return planeRanges(place, view, factors[n]); });
         }});
  }
  const std::vector<Entry> entries = judgeBoards(folder.path(), oracles, {});
  ASSERT_EQ(entries.size(), (boards + 1) * factors.size());
  for (std::size_t n = 0; n < boards * factors.size(); ++n) {
    const double factor = factors[n % factors.size()];
    const Figures& figures = entries[n].figures;
    EXPECT_EQ(figure(figures, "corners"), factor > 0.0 ? 100.0 : 0.0);
    if (factor > 0.0) {
      // What is left comes from finding corners in the picture.
      EXPECT_NEAR(figure(figures, "error"), 100.0 * (factor - 1.0), 0.3);
      EXPECT_NEAR(figure(figures, "side"), 100.0 * (factor - 1.0), 1.0);
    }
  }
  const auto together = [&entries](std::size_t oracle, const char* name) {
    return figure(entries[boards * 3 + oracle].figures, name);
  };
  for (const std::size_t n : {0U, 1U, 2U}) {
    EXPECT_EQ(together(n, "boards, count"), boards);
    EXPECT_EQ(together(n, "boards measured, count"), n == 2 ? 0 : boards);
    EXPECT_EQ(together(n, "boards within 1.5 %, count"), n == 0 ? boards : 0);
  }
}

TEST(WideRows, EnginesGetTheWrongCalibrationAndTimeToLearn) {
  Task task;
  task.view.size = {116, 100};
  struct Made {
    bool selfCalibrate;
    std::vector<cv::Mat> right;  // calibration of the right eye
    int frames;
  };
  std::vector<Made> made;
  const EngineKind kind{"noted", [&made](const Camera& camera, const Task& given) {
                          made.push_back({given.selfCalibrate, camera.params[1], 0});
                          return std::make_unique<FunctionEngine>([&made, n = made.size() - 1](const cv::Mat&) {
                            ++made[n].frames;
                            return Measured{cv::Mat(cv::Size(116, 100), CV_32FC1, cv::Scalar(1)), {}, {}};
                          });
                        }};
  const SceneOfRig scene = tuningScenes()[0];
  const std::vector<Entry> entries = judgeRowErrors(allCases()[0], {scene}, {kind}, task, SampleCache(""));
  ASSERT_EQ(entries.size(), 10U);
  ASSERT_EQ(made.size(), 10U);
  std::set<std::string> names;
  for (std::size_t n = 0; n < made.size(); ++n) {
    EXPECT_TRUE(names.insert(entries[n].part).second);
    EXPECT_EQ(figure(entries[n].figures, "valid"), 100.0);
    EXPECT_EQ(made[n].selfCalibrate, n % 2 == 1);
    EXPECT_EQ(made[n].frames, n % 2 == 1 ? 11 : 1) << entries[n].part;
  }
  const std::vector<cv::Mat> exact = sim::Rig(scene.rig).calibParams(true);
  const auto centerOff = [&](std::size_t n) { return made[n].right[0].at<double>(1, 2) - exact[0].at<double>(1, 2); };
  const auto degreesOff = [&](std::size_t n) {
    return std::acos((cv::trace(cv::Matx33d(made[n].right[3]) * cv::Matx33d(exact[3]).t()) - 1.0) / 2.0) * 180.0 /
           CV_PI;
  };
  const double row = task.view.verticalField / task.view.size.height;  // degrees
  const std::vector<double> degrees{0.0, 0.5 * row, row, 0.0, 0.0};
  // The lens has about 4.1 pixels a degree in the middle.
  const std::vector<double> pixels{0.0, 0.0, 0.0, 0.5, 0.5 * row * 4.1};
  for (std::size_t n = 0; n < made.size(); ++n) {
    EXPECT_NEAR(degreesOff(n), degrees[n / 2], 1e-5) << entries[n].part;
    EXPECT_NEAR(centerOff(n), pixels[n / 2], n / 2 == 4 ? 0.15 : 1e-9) << entries[n].part;
  }
}

}  // namespace
}  // namespace stereo::wide
