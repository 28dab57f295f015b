// SPDX-License-Identifier: Apache-2.0
// The pages that the program writes: what a browser is given to show.
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "StereoCamera.hpp"
#include "apps/stereo-camera/pictures/DemoPage.hpp"
#include "tests/support/Program.hpp"
#include "tests/support/TempDir.hpp"

using stereo::test::Program;
using stereo::test::readFile;
using stereo::test::TempDir;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

// The ends of the scale below a picture, meters; empty if it has none.
std::vector<double> scaleBelow(const std::string& html, const std::string& picture) {
  const std::size_t at = html.find("src=\"" + picture + "\"");
  if (at == std::string::npos) {
    return {};
  }
  const std::string figure = html.substr(at, html.find("</figure>", at) - at);
  const std::regex value("<b>([0-9.]+) m</b>");
  std::vector<double> values;
  for (auto each = std::sregex_iterator(figure.begin(), figure.end(), value); each != std::sregex_iterator(); ++each) {
    values.push_back(std::stod((*each)[1]));
  }
  return values;
}

}  // namespace

TEST(Page, FollowsTheReadersScreen) {
  stereo::app::DemoReport report;
  report.timings.push_back({"getRawFrame", 1, 2, 3, 4});
  const std::string html = stereo::app::page(
      report, {{"Some", "note", {{"a.png", "A", "what it is", cv::Mat(10, 10, CV_8UC3)}}}, {"None", "note", {}}});
  EXPECT_THAT(html, HasSubstr("<h2>Some</h2>"));
  EXPECT_THAT(html, Not(HasSubstr("None"))) << "a section without pictures has no heading";
  EXPECT_THAT(html, HasSubstr("prefers-color-scheme: dark"));
  EXPECT_THAT(html, HasSubstr("initial-scale=1"));
  // A picture is at most as wide as the screen, and a row that is not full does not stretch its last one.
  EXPECT_THAT(html, HasSubstr("repeat(auto-fill, minmax(min(30rem, 100%), 1fr))"));
  EXPECT_THAT(html, Not(HasSubstr("class=\"scale\"")));
  // No table can push the page beyond the screen.
  std::size_t tables = 0;
  for (std::size_t at = html.find("<table>"); at != std::string::npos; at = html.find("<table>", at + 1), ++tables) {
    EXPECT_EQ(html.substr(at - 20, 20), "<div class=\"scroll\">") << at;
  }
  EXPECT_EQ(tables, 2U);
}

TEST(Page, ShowsWideDepthFirstWithReasonsAndFiles) {
  const TempDir folder;
  const std::string output = folder.path("demo");
  Program program(STEREO_CAMERA_PROGRAM,
                  {"demo", "--simulate", "--size", "928x400", "--still", "--seconds", "0.2", "--patience", "120",
                   "--wide-size", "232x200", "--nearest", "0.2", "--farthest", "5", "--output", output});
  ASSERT_EQ(program.wait(), 0) << program.err();
  const std::string html = readFile(output + "/index.html");
  EXPECT_LT(html.find("Range over the whole field"), html.find("Depth of the camera class"));
  // A logarithmic scale: its middle is the geometric mean.
  EXPECT_THAT(scaleBelow(html, "wide-range.png"), testing::ElementsAre(0.2, 1.0, 5.0));
  const cv::Mat range = cv::imread(output + "/wide-range.tiff", cv::IMREAD_UNCHANGED);
  ASSERT_EQ(range.type(), CV_32FC1);
  ASSERT_EQ(range.size(), cv::Size(232, 200));
  const cv::Mat measured = range > 0;
  const int count = cv::countNonZero(measured);
  EXPECT_GT(count, range.total() / 2);
  double least = 0;
  double most = 0;
  cv::minMaxLoc(range, &least, &most, nullptr, nullptr, measured);
  EXPECT_GE(least, 0.2);
  EXPECT_LE(most, 5.0);
  const cv::Mat millimeters = cv::imread(output + "/wide-range-mm.png", cv::IMREAD_UNCHANGED);
  const cv::Mat confidence = cv::imread(output + "/wide-confidence.png", cv::IMREAD_UNCHANGED);
  EXPECT_EQ(cv::countNonZero((millimeters > 0) != measured), 0);
  EXPECT_EQ(cv::countNonZero((confidence > 0) != measured), 0);
  EXPECT_THAT(readFile(output + "/wide-cloud.ply"), HasSubstr("element vertex " + std::to_string(count) + "\n"));
  EXPECT_THAT(html, ContainsRegex("too plain: [0-9]+ %"));
  EXPECT_THAT(html, HasSubstr("WideDepth::compute"));
}

TEST(Page, ShowsDepthInColorsWithAScaleInMeters) {
  const TempDir folder;
  const std::string output = folder.path("demo");
  Program program(STEREO_CAMERA_PROGRAM, {"demo", "--simulate", "--size", "928x400", "--still", "--seconds", "0.2",
                                          "--patience", "120", "--output", output});
  ASSERT_EQ(program.wait(), 0) << program.err();
  const std::string html = readFile(output + "/index.html");
  const cv::Mat metric = cv::imread(output + "/depth.tiff", cv::IMREAD_UNCHANGED);
  ASSERT_EQ(metric.type(), CV_32FC1);
  double least = 0;
  double most = 0;
  cv::minMaxLoc(metric, &least, &most, nullptr, nullptr, metric > 0);

  // The program's own picture: its scale is that of the depths, and the raw file is a link.
  const std::vector<double> own = scaleBelow(html, "depth-metric.png");
  ASSERT_EQ(own.size(), 3U);
  EXPECT_NEAR(own[0], least, 0.006);
  EXPECT_NEAR(own[1], (least + most) / 2, 0.006);
  EXPECT_NEAR(own[2], most, 0.006);
  EXPECT_THAT(html, HasSubstr("<a href=\"depth.png\">"));
  EXPECT_THAT(html, Not(HasSubstr("src=\"depth.png\"")));
  const cv::Mat painted = cv::imread(output + "/depth-metric.png", cv::IMREAD_UNCHANGED);
  ASSERT_EQ(painted.size(), metric.size());
  cv::Mat black;
  cv::inRange(painted, cv::Scalar::all(0), cv::Scalar::all(0), black);
  EXPECT_EQ(cv::countNonZero(black != (metric <= 0)), 0) << "what has depth is to be seen, and nothing else";

  // The camera's: with the ends of its scale each depth has the color that the camera gave it. They are read from the
  // page, to the centimeter, so a color may be a little off.
  const std::vector<double> camera = scaleBelow(html, "depth-colour.png");
  ASSERT_EQ(camera.size(), 3U);
  cv::Mat colored = cv::imread(output + "/depth-colour.png", cv::IMREAD_UNCHANGED);
  cv::flip(colored, colored, -1);
  int compared = 0;
  int close = 0;
  for (int row = 0; row < metric.rows; ++row) {
    for (int col = 0; col < metric.cols; ++col) {
      const float depth = metric.at<float>(row, col);
      const auto lo = static_cast<float>(camera[0]);
      const auto hi = static_cast<float>(camera[2]);
      if (depth > lo && depth < hi) {
        const cv::Vec3b expected = getclolor(lo, hi, depth);
        const cv::Vec3b found = colored.at<cv::Vec3b>(row, col);
        bool isClose = true;
        for (int channel = 0; channel < 3; ++channel) {
          // Bytes wrap around: 2 is next to 254.
          isClose = isClose && std::abs(static_cast<std::int8_t>(expected[channel] - found[channel])) < 16;
        }
        ++compared;
        close += isClose ? 1 : 0;
      }
    }
  }
  EXPECT_GT(compared, 1000);
  EXPECT_GT(close, compared * 95 / 100);
}
