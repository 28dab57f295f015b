// SPDX-License-Identifier: Apache-2.0
// Results as JSON.
#include <cmath>
#include <cstdio>
#include <ostream>

#include "bench/compare/AllocationCount.hpp"
#include "bench/compare/ResultOutput.hpp"

namespace stereo::compare {

namespace {

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result += '\\';
    }
    result += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
  }
  return result + '"';
}

// JSON has neither NaN nor infinity.
std::string number(double value) {
  if (!std::isfinite(value)) {
    return "null";
  }
  char text[32];
  std::snprintf(text, sizeof(text), "%.6g", value);
  return text;
}

// 0 means a ratio without a target, or one that was not measured.
std::string ratio(double value) { return value == 0 ? "null" : number(value); }

void writeTimes(std::ostream& out, const char* who, const Times& times) {
  if (times.calls == 0) {
    return;
  }
  out << ",\n      " << quoted(who) << ": {\"calls\": " << times.calls << ", \"median_ms\": " << number(times.median)
      << ", \"p90_ms\": " << number(times.p90) << ", \"cpu_ms\": " << number(times.cpu)
      << ", \"allocations\": " << (countsAllocations() ? number(times.allocations) : "null") << "}";
}

void writeResult(std::ostream& out, const Result& result) {
  out << "    {\n      \"unit\": " << quoted(result.name);
  out << ",\n      \"equal\": " << (result.difference.empty() ? "true" : "false");
  if (!result.difference.empty()) {
    out << ",\n      \"difference\": " << quoted(result.difference);
  }
  writeTimes(out, "scalar", result.scalar);
  writeTimes(out, "library", result.library);
  writeTimes(out, "peer", result.peer);
  writeTimes(out, "floor", result.floor);
  if (!result.peerName.empty()) {
    out << ",\n      \"peer_name\": " << quoted(result.peerName);
  }
  if (!result.floorName.empty()) {
    out << ",\n      \"floor_name\": " << quoted(result.floorName);
  }
  out << ",\n      \"scalar_over_library\": " << ratio(result.scalarOverLibrary())
      << ",\n      \"peer_over_library\": " << ratio(result.peerOverLibrary())
      << ",\n      \"library_over_floor\": " << ratio(result.libraryOverFloor())
      << ",\n      \"wanted\": {\"scalar_over_library\": " << ratio(result.targets.scalar)
      << ", \"peer_over_library\": " << ratio(result.targets.peer)
      << ", \"library_over_floor\": " << ratio(result.targets.floor) << "}"
      << ",\n      \"reached\": " << (result.reached() ? "true" : "false") << "\n    }";
}

}  // namespace

void writeJson(std::ostream& out, const Environment& environment, const std::vector<Result>& results) {
  out << "{\n  \"machine\": {\"processor\": " << quoted(environment.processor) << ", \"cores\": " << environment.cores
      << ", \"threads\": " << environment.threads << ", \"instructions\": " << quoted(environment.instructions)
      << ", \"compiler\": " << quoted(environment.compiler) << ", \"opencv\": " << quoted(environment.openCv) << "},\n"
      << "  \"units\": [";
  const char* separator = "\n";
  for (const Result& result : results) {
    out << separator;
    writeResult(out, result);
    separator = ",\n";
  }
  out << "\n  ]\n}\n";
}

}  // namespace stereo::compare
