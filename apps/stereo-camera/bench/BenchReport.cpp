// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/bench/BenchReport.hpp"

#include "model/Text.hpp"

namespace stereo::app {

using model::formatted;

namespace {

double perSecond(std::uint64_t count, double seconds) { return seconds > 0 ? static_cast<double>(count) / seconds : 0; }

}  // namespace

std::string benchTable(const BenchReport& report) {
  std::string text;
  for (const auto& [name, value] : report.facts) {
    text += formatted("%-16s", name.c_str()) + value + "\n";
  }
  text += formatted("%-16s%.1f s\n", "measured", report.seconds);

  text += formatted("\n%-24s %9s %9s\n", "device's frames", "count", "a second");
  const auto frames = [&](const char* name, std::uint64_t count, const std::string& remark) {
    text += formatted("  %-22s %9llu %9.2f", name, static_cast<unsigned long long>(count),
                      perSecond(count, report.seconds)) +
            (remark.empty() ? "\n" : "   " + remark + "\n");
  };
  frames("due", report.framesRead + report.framesLost, "");
  frames("read", report.framesRead, formatted("the worker waited for them %.0f %% of the time", 100 * report.waiting));
  frames("lost", report.framesLost, report.lostHow);
  frames("published", report.framesPublished, "");

  text += formatted("\n%-24s %9s %9s %8s %8s %8s %8s\n", "from the device's frame", "count", "a second", "p50 ms",
                    "p90 ms", "p99 ms", "max ms");
  for (const Figures& each : report.products) {
    text +=
        formatted("  %-22s %9llu %9.2f %8.2f %8.2f %8.2f %8.2f\n", each.name.c_str(),
                  static_cast<unsigned long long>(each.count), each.perSecond, each.p50, each.p90, each.p99, each.max);
  }

  text += formatted("\n%-24s %9s\n", "processor", "% of a core");
  for (const auto& [name, percent] : report.processor) {
    text += formatted("  %-30s %5.1f\n", name.c_str(), percent);
  }
  text += formatted("peak resident memory %.0f MB\n", report.peakMegabytes);
  return report.note.empty() ? text : text + report.note + "\n";
}

Json benchJson(const BenchReport& report) {
  Json json;
  json.object("facts");
  for (const auto& [name, value] : report.facts) {
    json.add(jsonKey(name), value);
  }
  json.end().add("seconds", report.seconds).object("device").add("read", report.framesRead);
  json.add("read_per_second", perSecond(report.framesRead, report.seconds)).add("lost", report.framesLost);
  json.add("lost_how", report.lostHow).add("published", report.framesPublished);
  json.add("waiting_percent", 100 * report.waiting).end().object("products");
  for (const Figures& each : report.products) {
    json.object(jsonKey(each.name)).add("count", each.count).add("per_second", each.perSecond);
    json.add("p50_ms", each.p50).add("p90_ms", each.p90).add("p99_ms", each.p99).add("max_ms", each.max).end();
  }
  json.end().object("processor_percent");
  for (const auto& [name, percent] : report.processor) {
    json.add(jsonKey(name), percent);
  }
  json.end().add("peak_resident_megabytes", report.peakMegabytes).add("note", report.note);
  return json;
}

}  // namespace stereo::app
