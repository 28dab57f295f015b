// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/pictures/DemoPage.hpp"

#include <cmath>
#include <cstdio>
#include <sstream>

namespace stereo::app {

namespace {

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string cssColor(const cv::Vec3b& color) {
  std::ostringstream text;
  text << "rgb(" << int{color[2]} << ", " << int{color[1]} << ", " << int{color[0]} << ")";
  return text.str();
}

// A bar of a picture's colors, with the values at its ends and in its middle.
void addScale(std::ostringstream& html, const ColorScale& scale) {
  html << "<div class=\"scale\"><i style=\"background: linear-gradient(to right";
  for (const cv::Vec3b& color : scale.colors) {
    html << ", " << cssColor(color);
  }
  html << ")\"></i><span>";
  const double middle = scale.logarithmic ? std::sqrt(scale.least * scale.most) : (scale.least + scale.most) / 2;
  for (const double value : {scale.least, middle, scale.most}) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f m", value);
    html << "<b>" << text << "</b>";
  }
  html << "</span></div>";
}

void addPicture(std::ostringstream& html, const Picture& picture) {
  const bool wide = picture.image.cols > 3 * picture.image.rows / 2;
  html << "<figure" << (wide ? " class=\"wide\"" : "") << "><a href=\"" << picture.file << "\"><img src=\""
       << picture.file << "\" alt=\"" << escaped(picture.title) << "\"></a>";
  if (picture.scale) {
    addScale(html, *picture.scale);
  }
  if (!picture.legend.empty()) {
    html << "<div class=\"legend\">";
    for (const auto& [color, text] : picture.legend) {
      html << "<span><i style=\"background: " << cssColor(color) << "\"></i>" << escaped(text) << "</span>";
    }
    html << "</div>";
  }
  html << "<figcaption><b>" << escaped(picture.title) << "</b>" << escaped(picture.caption) << " " << picture.image.cols
       << " × " << picture.image.rows << " pixels.</figcaption></figure>\n";
}

void addSection(std::ostringstream& html, const Section& section) {
  if (section.pictures.empty()) {
    return;
  }
  html << "<h2>" << escaped(section.heading) << "</h2>\n";
  if (!section.note.empty()) {
    html << "<p>" << escaped(section.note) << "</p>\n";
  }
  html << "<div class=\"pictures\">\n";
  for (const Picture& picture : section.pictures) {
    addPicture(html, picture);
  }
  html << "</div>\n";
}

}  // namespace

const char* const pageStyle = R"(
:root { color-scheme: light dark; --text: #1a1a1a; --soft: #555; --line: #ddd; --back: #fff; --link: #0b57d0;
  --note: #fff4d6; --fault: #ffe1dc; --good: #e2f5e2 }
@media (prefers-color-scheme: dark) {
  :root { --text: #e6e6e6; --soft: #aaa; --line: #444; --back: #161616; --link: #8ab4f8;
    --note: #453a17; --fault: #55241d; --good: #1f3d24 }
}
body { font: 16px/1.5 system-ui, sans-serif; margin: 2rem auto; max-width: 72rem; padding: 0 1rem;
  color: var(--text); background: var(--back) }
a { color: var(--link) }
h1 { margin-bottom: 0 } .source { color: var(--soft); margin-top: 0 }
.scroll { overflow-x: auto; margin: 1rem 0 }
table { border-collapse: collapse }
th, td { text-align: left; vertical-align: top; padding: .25rem 1rem .25rem 0; border-bottom: 1px solid var(--line) }
td { overflow-wrap: anywhere } td:first-child { min-width: 8.5rem }
td.number, th.number { text-align: right; overflow-wrap: normal } td.number { white-space: nowrap }
.pictures { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(30rem, 100%), 1fr)); gap: 1.5rem }
figure { margin: 0 } figure.wide { grid-column: 1 / -1 }
img { width: 100%; background: #000; display: block } figcaption b { display: block }
.scale i { display: block; height: .75rem; margin-top: .25rem }
.scale span { display: flex; justify-content: space-between; font-size: .875rem }
.legend { display: flex; flex-wrap: wrap; gap: .25rem 1rem; margin-top: .25rem; font-size: .875rem }
.legend i { display: inline-block; width: .75rem; height: .75rem; margin-right: .35rem }
.note, .fault, .good { padding: .5rem 1rem; background: var(--note) }
.fault { background: var(--fault) } .good { background: var(--good) }
@media (max-width: 40rem) {
  th, td { padding-right: .3rem; font-size: .75rem; overflow-wrap: anywhere } td:first-child { min-width: 0 }
  th.number { hyphens: auto }
}
)";

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string page(const DemoReport& report, const std::vector<Section>& sections) {
  std::ostringstream html;
  html << "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
       << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>Stereo "
          "camera</title>\n<style>"
       << pageStyle << "</style>\n<h1>What the camera sees</h1>\n<p class=\"source\">" << escaped(report.source)
       << "</p>\n";
  if (!report.note.empty()) {
    html << "<p class=\"note\">" << escaped(report.note) << "</p>\n";
  }
  for (const Section& section : sections) {
    addSection(html, section);
  }
  if (!report.files.empty()) {
    html << "<h2>Files</h2>\n<div class=\"scroll\"><table>\n";
    for (const auto& [name, content] : report.files) {
      html << "<tr><td><a href=\"" << name << "\">" << name << "</a></td><td>" << escaped(content) << "</td></tr>\n";
    }
    html << "</table></div>\n";
  }
  html << "<h2>Camera</h2>\n<div class=\"scroll\"><table>\n";
  for (const auto& [name, value] : report.facts) {
    html << "<tr><th>" << escaped(name) << "</th><td>" << escaped(value) << "</td></tr>\n";
  }
  html
      << "</table></div>\n<h2>Reads</h2>\n<p>Every read waits for the next frame, so its time includes that wait.</p>\n"
      << "<div class=\"scroll\"><table>\n<tr><th>Read</th><th class=\"number\">reads</th><th class=\"number\">a "
         "second</th>"
      << "<th class=\"number\">median, ms</th><th class=\"number\">90 %, ms</th></tr>\n";
  for (const Timing& timing : report.timings) {
    html << "<tr><td><code>" << escaped(timing.name) << "</code></td><td class=\"number\">" << timing.reads
         << "</td><td class=\"number\">" << number(timing.perSecond) << "</td><td class=\"number\">"
         << number(timing.medianMs) << "</td><td class=\"number\">" << number(timing.p90Ms) << "</td></tr>\n";
  }
  html << "</table></div>\n</html>\n";
  return html.str();
}

std::string table(const DemoReport& report) {
  std::ostringstream text;
  char line[160];
  for (const auto& [name, value] : report.facts) {
    std::snprintf(line, sizeof line, "  %-24s %s\n", name.c_str(), value.c_str());
    text << line;
  }
  std::snprintf(line, sizeof line, "  %-44s %6s %9s %10s %8s\n", "read", "reads", "a second", "median ms", "90 % ms");
  text << line;
  for (const Timing& timing : report.timings) {
    std::snprintf(line, sizeof line, "  %-44s %6d %9.1f %10.1f %8.1f\n", timing.name.c_str(), timing.reads,
                  timing.perSecond, timing.medianMs, timing.p90Ms);
    text << line;
  }
  return text.str();
}

}  // namespace stereo::app
