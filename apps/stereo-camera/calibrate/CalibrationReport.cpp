// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/calibrate/CalibrationReport.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <sstream>

#include <glib.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "StereoCamera.hpp"
#include "apps/stereo-camera/pictures/DemoPage.hpp"
#include "calibration/Rectification.hpp"
#include "model/Text.hpp"

namespace stereo::app {

using model::formatted;

namespace {

constexpr double degree = CV_PI / 180.0;

// "data:image/jpeg;base64,...", so that the page is a single file to send.
std::string embedded(const cv::Mat& image) {
  std::vector<unsigned char> bytes;
  cv::imencode(".jpg", image, bytes, {cv::IMWRITE_JPEG_QUALITY, 88});
  gchar* const encoded = g_base64_encode(bytes.data(), bytes.size());
  std::string result = std::string("data:image/jpeg;base64,") + encoded;
  g_free(encoded);
  return result;
}

void addFigure(std::ostringstream& html, const cv::Mat& image, const std::string& title, const std::string& caption) {
  if (!image.empty()) {
    html << "<figure class=\"wide\"><img src=\"" << embedded(image) << "\" alt=\"" << escaped(title)
         << "\"><figcaption><b>" << escaped(title) << "</b>" << escaped(caption) << "</figcaption></figure>\n";
  }
}

// Green for a perfect fit, yellow for half a pixel, red for a pixel or more.
cv::Scalar colorOf(double error) {
  const double share = std::min(error, 1.0);
  return {40.0, 255.0 * std::min(1.0, 2.0 * (1.0 - share)), 255.0 * std::min(1.0, 2.0 * share)};
}

void drawRings(cv::Mat& eyeImage, const model::OmniModel& eye) {
  for (int ring = 30; ring <= 90; ring += 30) {
    std::vector<cv::Point> line;
    for (int turn = 0; turn <= 120; ++turn) {
      const double about = turn * 3.0 * degree;
      const double off = ring * degree;
      const auto pixel = eye.project({std::sin(off) * std::cos(about), std::sin(off) * std::sin(about), std::cos(off)});
      if (pixel) {
        line.emplace_back(cvRound(pixel->x), cvRound(pixel->y));
      }
    }
    cv::polylines(eyeImage, line, false, {190, 150, 90}, 1, cv::LINE_AA);
    const auto label =
        eye.project({std::sin(ring * degree) * 0.7071, -std::sin(ring * degree) * 0.7071, std::cos(ring * degree)});
    if (label) {
      cv::putText(eyeImage, std::to_string(ring), *label, cv::FONT_HERSHEY_SIMPLEX, 0.5, {230, 190, 130}, 1,
                  cv::LINE_AA);
    }
  }
}

// Three rows: number of corners, mean and maximum error for each ring.
void addSpreads(std::ostringstream& html, const std::string& title,
                const std::vector<const calibration::Spread*>& spreads) {
  html << "<tr><th class=\"group\" colspan=\"" << spreads.size() + 1 << "\">" << title << "</th></tr>\n";
  const auto row = [&](const char* name, const std::function<std::string(const calibration::Spread&)>& text) {
    html << "<tr><td>" << name << "</td>";
    for (const calibration::Spread* spread : spreads) {
      html << "<td class=\"number\">" << (spread->count == 0 ? "" : text(*spread)) << "</td>";
    }
    html << "</tr>\n";
  };
  row("corners", [](const calibration::Spread& spread) { return std::to_string(spread.count); });
  row("mean", [](const calibration::Spread& spread) { return formatted("%.2f", spread.mean); });
  row("most", [](const calibration::Spread& spread) { return formatted("%.2f", spread.most); });
}

// A column for each ring; they fit a phone's width.
void addRings(std::ostringstream& html, const calibration::Assessment& assessment) {
  std::vector<const calibration::Spread*> reprojection;
  std::vector<const calibration::Spread*> rows;
  std::vector<const calibration::Spread*> latitude;
  html << "<h2>Errors by angle off the axis</h2>\n<div class=\"scroll\"><table>\n<tr><th></th>";
  for (std::size_t ring = 0; ring < assessment.rings.size(); ++ring) {
    const calibration::RingErrors& each = assessment.rings[ring];
    if (each.reprojection.count == 0 && each.latitude.count == 0) {
      continue;
    }
    const double from = static_cast<double>(ring) * calibration::ringDegrees;
    html << "<th class=\"number\">" << formatted("%.0f–%.0f°", from, from + calibration::ringDegrees) << "</th>";
    reprojection.push_back(&each.reprojection);
    rows.push_back(&each.rows);
    latitude.push_back(&each.latitude);
  }
  html << "</tr>\n";
  addSpreads(html, "corners against model, px of the picture", reprojection);
  addSpreads(html, "rows, perspective view, px", rows);
  addSpreads(html, "rows, whole field, px", latitude);
  html
      << "</table></div>\n<p>Rows are compared after rectification, corner by corner, without the boards' poses. The "
         "perspective view is the camera's default, 464 × 400 pixels over 90 degrees. Over the whole field a row is an "
         "angle about the line between the eyes, in pixels of that view's middle (a quarter of a degree each).</p>\n";
}

void addPictures(std::ostringstream& html, const CalibrationStory& story) {
  html << "<h2>Pictures</h2>\n<div class=\"scroll\"><table>\n<tr><th>picture</th><th class=\"number\">left "
          "corners</th><th "
          "class=\"number\">right "
          "corners</th><th class=\"number\">rejected</th><th class=\"number\">rms, px</th><th>verdict</th></tr>\n";
  const calibration::Calibration& result = story.result;
  for (std::size_t view = 0; view < result.views.size(); ++view) {
    const calibration::BoardView& each = result.views[view];
    const double rms = calibration::spreadOf(calibration::distances(result.errors, view)).rms;
    std::size_t used = 0;
    for (const std::vector<char>& eye : result.selection[view]) {
      used += static_cast<std::size_t>(std::count(eye.begin(), eye.end(), 1));
    }
    html << "<tr><td>" << escaped(each.name) << "</td><td class=\"number\">" << each.corners[0].size()
         << "</td><td class=\"number\">" << each.corners[1].size() << "</td><td class=\"number\">"
         << each.corners[0].size() + each.corners[1].size() - used << "</td><td class=\"number\">"
         << (std::isfinite(rms) ? formatted("%.2f", rms) : "") << "</td><td>"
         << (result.kept[view] != 0 ? "kept" : "rejected: does not fit the others") << "</td></tr>\n";
  }
  html << "</table></div>\n";
}

// Of the kept pictures of both eyes, the one that fits best and the one that fits worst; the same if there is only one.
std::pair<std::size_t, std::size_t> extremes(const calibration::Calibration& result) {
  std::vector<std::pair<double, std::size_t>> order;
  for (std::size_t view = 0; view < result.views.size(); ++view) {
    if (result.kept[view] != 0 && result.views[view].seesBoth()) {
      order.emplace_back(calibration::spreadOf(calibration::distances(result.errors, view)).rms, view);
    }
  }
  const auto [least, most] = std::minmax_element(order.begin(), order.end());
  return {least->second, most->second};
}

}  // namespace

std::vector<std::pair<std::string, std::string>> calibrationFacts(const CalibrationStory& story) {
  const calibration::Calibration& result = story.result;
  const calibration::Assessment& assessment = story.assessment;
  const cv::Vec3d& sags = result.estimate.sags;
  std::vector<std::pair<std::string, std::string>> facts = {
      {"pictures", formatted("%zu kept of %zu with a board", result.picturesKept(), result.views.size())},
      {"corners", formatted("%zu used of %zu found in them", result.cornersUsed(), result.cornersFound())},
      {"distance to the model",
       formatted("%.3f px rms over all corners found, %.3f px over those used", result.rms(), result.rmsUsed())},
      {"rows, perspective view",
       formatted("%.3f px mean, %.2f px at most", assessment.rows.mean, assessment.rows.most)},
      {"rows, whole field",
       formatted("%.3f px mean, %.2f px at most", assessment.latitude.mean, assessment.latitude.most)},
      {"baseline", formatted("%.2f mm", result.baseline())},
      {"corners reach to",
       formatted("%.0f degrees off the axis (left), %.0f (right)", result.reach(0) / degree, result.reach(1) / degree)},
      {"covered", formatted("%.0f %% of the left eye, %.0f %% of the right", 100 * assessment.coverage[0],
                            100 * assessment.coverage[1])},
      {"board", formatted("%d x %d corners, squares of %g mm, bent by %.1f, %.1f, %.1f mm (along, twist, across)",
                          story.board.corners.width, story.board.corners.height, story.board.square, sags[0], sags[1],
                          sags[2])}};
  for (std::size_t eye = 0; eye < 2; ++eye) {
    const model::OmniModel& m = result.estimate.rig.eyes[eye];
    facts.emplace_back(
        eye == 0 ? "left eye" : "right eye",
        formatted("xi %.4f, focal length %.2f x %.2f px, center (%.2f, %.2f) px, k1 %.5f, k2 %.5f, p1 %.5f, "
                  "p2 %.5f",
                  m.xi, m.fx, m.fy, m.cx, m.cy, m.k1, m.k2, m.p1, m.p2));
  }
  return facts;
}

Json calibrationFigures(const CalibrationStory& story) {
  const calibration::Calibration& result = story.result;
  const calibration::Assessment& assessment = story.assessment;
  Json json;
  const auto texts = [&](const char* name, const std::vector<std::string>& values) {
    json.list(name);
    for (const std::string& value : values) {
      json.add("", value);
    }
    json.end();
  };
  const auto rows = [&](const char* name, const calibration::Spread& spread) {
    json.object(name).add("mean_px", spread.mean).add("most_px", spread.most).end();
  };
  json.add("source", story.source).add("good", assessment.faults.empty());
  texts("problems", assessment.faults);
  texts("advice", assessment.advice);
  json.object("pictures").add("kept", std::uint64_t{result.picturesKept()});
  json.add("with_board", std::uint64_t{result.views.size()}).list("thrown_out");
  for (std::size_t view = 0; view < result.views.size(); ++view) {
    if (result.kept[view] == 0) {
      json.add("", result.views[view].name);
    }
  }
  json.end().end().object("corners").add("used", std::uint64_t{result.cornersUsed()});
  json.add("found", std::uint64_t{result.cornersFound()}).add("rms_px", result.rms());
  json.add("rms_used_px", result.rmsUsed()).end();
  rows("rows_perspective", assessment.rows);
  rows("rows_whole_field", assessment.latitude);
  json.add("baseline_mm", result.baseline());
  for (std::size_t eye = 0; eye < 2; ++eye) {
    const model::OmniModel& m = result.estimate.rig.eyes[eye];
    json.object(eye == 0 ? "left_eye" : "right_eye");
    json.add("reach_degrees", result.reach(static_cast<int>(eye)) / degree).add("covered_percent", 100 * assessment.coverage[eye]);
    json.add("xi", m.xi).add("fx", m.fx).add("fy", m.fy).add("cx", m.cx).add("cy", m.cy);
    json.add("k1", m.k1).add("k2", m.k2).add("p1", m.p1).add("p2", m.p2).end();
  }
  return json;
}

cv::Mat coveragePicture(const CalibrationStory& story) {
  const cv::Size& size = story.eyeSize;
  cv::Mat picture(size.height, 2 * size.width, CV_8UC3, cv::Scalar::all(24));
  const calibration::Calibration& result = story.result;
  for (std::size_t eye = 0; eye < 2; ++eye) {
    cv::Mat half = picture.colRange(static_cast<int>(eye) * size.width, static_cast<int>(eye + 1) * size.width);
    cv::rectangle(half, {0, 0, size.width, size.height}, cv::Scalar::all(90));
    drawRings(half, result.estimate.rig.eyes[eye]);
    for (std::size_t view = 0; view < result.views.size(); ++view) {
      for (std::size_t k = 0; k < result.views[view].corners[eye].size(); ++k) {
        const bool used = result.selection[view][eye][k] != 0;
        const double error = used ? result.errors.reprojection[view][eye][k] : 1.0;
        cv::circle(half, result.views[view].corners[eye][k], used ? 3 : 4, colorOf(error), used ? cv::FILLED : 2,
                   cv::LINE_AA);
      }
    }
  }
  return picture;
}

cv::Mat rectifiedPicture(const CalibrationStory& story, std::size_t view) {
  const cv::Mat picture = story.picture(view);
  if (picture.empty()) {
    return {};
  }
  const cv::Size size(928, 800);
  const cv::Mat P = (cv::Mat_<double>(3, 3) << 464, 0, 463.5, 0, 464, 399.5, 0, 0, 1);
  const auto turns = calibration::rectify(story.result.estimate.rig.rightFromLeft);
  cv::Mat both(size.height, 2 * size.width, CV_8UC3);
  for (int eye = 0; eye < 2; ++eye) {
    const auto which = static_cast<std::size_t>(eye);
    const model::OmniModel& model = story.result.estimate.rig.eyes[which];
    cv::Mat map1;
    cv::Mat map2;
    initRectifyMap(cv::Mat(model.intrinsic()), cv::Mat(model.distortion()).t(), cv::Mat(turns[which]), P, model.xi, 0,
                   size, 2, map1, map2);
    cv::remap(picture.colRange(eye * story.eyeSize.width, (eye + 1) * story.eyeSize.width),
              both.colRange(eye * size.width, (eye + 1) * size.width), map1, map2, cv::INTER_LINEAR);
  }
  for (int row = 20; row < size.height; row += 40) {
    cv::line(both, {0, row}, {both.cols, row}, {60, 200, 60}, 1);
  }
  cv::line(both, {size.width, 0}, {size.width, size.height}, {255, 255, 255}, 2);
  return both;
}

std::string calibrationPage(const CalibrationStory& story) {
  std::ostringstream html;
  html
      << "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
      << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>Calibration</title>\n<style>"
      << pageStyle
      << "figure { margin-bottom: 1.5rem } th.group { padding-top: .75rem }</style>\n<h1>Calibration</h1>\n"
      << "<p class=\"source\">" << escaped(story.source) << "</p>\n";
  for (const std::string& fault : story.assessment.faults) {
    html << "<p class=\"fault\">" << escaped(fault) << "</p>\n";
  }
  if (story.assessment.faults.empty()) {
    html << "<p class=\"good\">Good: corners are " << formatted("%.2f", story.result.rmsUsed())
         << " px from the model (rms), rectified rows agree to " << formatted("%.2f", story.assessment.rows.mean)
         << " px (mean).</p>\n";
  }
  for (const std::string& advice : story.assessment.advice) {
    html << "<p class=\"note\">" << escaped(advice) << "</p>\n";
  }
  html << "<div class=\"scroll\"><table>\n";
  for (const auto& [name, value] : calibrationFacts(story)) {
    html << "<tr><th>" << escaped(name) << "</th><td>" << escaped(value) << "</td></tr>\n";
  }
  html << "</table></div>\n";
  addFigure(html, coveragePicture(story), "Coverage",
            "All corners, left eye and right eye. Green fits, yellow is half a pixel off, red a pixel or more; open "
            "circles were rejected. Rings every 30 degrees off the axis. Where there are no corners the model is a "
            "guess.");
  addRings(html, story.assessment);
  const auto [best, worst] = extremes(story.result);
  addFigure(html, rectifiedPicture(story, best),
            "The picture that fits best, rectified: " + story.result.views[best].name,
            "Each point is on the same line in both eyes.");
  if (worst != best) {
    addFigure(html, rectifiedPicture(story, worst),
              "The picture that fits worst, rectified: " + story.result.views[worst].name,
              "A blurred, bent or moving board shows here.");
  }
  addPictures(html, story);
  html << "</html>\n";
  return html.str();
}

}  // namespace stereo::app
