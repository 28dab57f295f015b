// SPDX-License-Identifier: Apache-2.0
// Results as a table.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <ostream>

#include "bench/compare/AllocationCount.hpp"
#include "bench/compare/ResultOutput.hpp"

namespace stereo::compare {

namespace {

constexpr std::size_t columns = 14;
using Row = std::array<std::string, columns>;

const Row head = {"unit",     "scalar",   "library",  "p90",       "peer",     "floor", "scalar/lib",
                  "(wanted)", "peer/lib", "(wanted)", "lib/floor", "(wanted)", "cpu",   "allocs"};

std::string fixed(double value, int digits) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.*f", digits, value);
  return text;
}

std::string shortest(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g", value);
  return text;
}

std::string milliseconds(double value) { return fixed(value, value < 0.1 ? 4 : (value < 10 ? 3 : 1)); }

std::string median(const Times& times) { return times.calls == 0 ? "" : milliseconds(times.median); }

std::string ratio(double value) { return value == 0 ? "" : fixed(value, value < 10 ? 2 : 1); }

// The target, and whether it was reached: "yes >= 25" or "NO >= 25".
std::string verdict(double value, double target, bool atMost) {
  if (target == 0) {
    return "";
  }
  const bool reached = value != 0 && (atMost ? value <= target : value >= target);
  return std::string(reached ? "yes " : "NO ") + (atMost ? "<= " : ">= ") + shortest(target);
}

Row rowOf(const Result& result) {
  return {result.name,
          median(result.scalar),
          median(result.library),
          milliseconds(result.library.p90),
          median(result.peer),
          median(result.floor),
          ratio(result.scalarOverLibrary()),
          verdict(result.scalarOverLibrary(), result.targets.scalar, false),
          ratio(result.peerOverLibrary()),
          verdict(result.peerOverLibrary(), result.targets.peer, false),
          ratio(result.libraryOverFloor()),
          verdict(result.libraryOverFloor(), result.targets.floor, true),
          milliseconds(result.library.cpu),
          countsAllocations() ? fixed(result.library.allocations, 1) : "-"};
}

void writeMarkdownRow(std::ostream& out, const Row& row) {
  out << "|";
  for (const std::string& cell : row) {
    out << ' ' << cell << " |";
  }
  out << '\n';
}

void writeAlignedRow(std::ostream& out, const Row& row, const std::array<std::size_t, columns>& widths) {
  for (std::size_t k = 0; k < columns; ++k) {
    const std::string padding(widths[k] - row[k].size(), ' ');
    out << (k == 0 ? row[k] + padding : "  " + padding + row[k]);  // names to the left, figures to the right
  }
  out << '\n';
}

void writeNames(std::ostream& out, const std::vector<Result>& results, bool markdown) {
  const char* bullet = markdown ? "- " : "  ";
  out << (markdown ? "\n" : "") << "Peers and floors:\n" << (markdown ? "\n" : "");
  for (const Result& result : results) {
    if (!result.peerName.empty()) {
      out << bullet << result.name << ": peer " << result.peerName << '\n';
    }
    if (!result.floorName.empty()) {
      out << bullet << result.name << ": floor " << result.floorName << '\n';
    }
  }
}

}  // namespace

void writeTable(std::ostream& out, const Environment& environment, const std::vector<Result>& results, bool markdown) {
  out << environment.processor << ", " << environment.cores << " cores, " << environment.threads
      << " threads in use; instructions " << environment.instructions << "; " << environment.compiler << "; OpenCV "
      << environment.openCv << '\n'
      << "Milliseconds, medians; p90, processor time (all threads) and allocations are the library's, a call.\n\n";
  std::vector<Row> rows;
  for (const Result& result : results) {
    rows.push_back(rowOf(result));
  }
  if (markdown) {
    Row rule;
    rule.fill("---:");
    rule[0] = "---";
    writeMarkdownRow(out, head);
    writeMarkdownRow(out, rule);
    for (const Row& row : rows) {
      writeMarkdownRow(out, row);
    }
  } else {
    std::array<std::size_t, columns> widths{};
    for (std::size_t k = 0; k < columns; ++k) {
      widths[k] = head[k].size();
      for (const Row& row : rows) {
        widths[k] = std::max(widths[k], row[k].size());
      }
    }
    writeAlignedRow(out, head, widths);
    for (const Row& row : rows) {
      writeAlignedRow(out, row, widths);
    }
    out << '\n';
  }
  writeNames(out, results, markdown);
}

}  // namespace stereo::compare
