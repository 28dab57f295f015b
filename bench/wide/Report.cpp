// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/Report.hpp"

#include <algorithm>
#include <cmath>
#include <ostream>

#include "model/Text.hpp"

namespace stereo::wide {

namespace {

struct Column {
  std::string head;
  std::string figure;
  int digits = 1;
};

using Columns = std::vector<Column>;

bool hasAny(const Entry& entry, const Columns& columns) {
  return std::any_of(columns.begin(), columns.end(), [&entry](const Column& column) {
    return std::any_of(entry.figures.begin(), entry.figures.end(),
                       [&column](const Figure& figure) { return figure.name == column.figure; });
  });
}

void writeTable(std::ostream& out, const std::string& title, const Columns& columns,
                const std::vector<Entry>& entries) {
  if (std::none_of(entries.begin(), entries.end(), [&](const Entry& entry) { return hasAny(entry, columns); })) {
    return;
  }
  out << '\n' << model::formatted("%-48s", title.c_str());
  for (const Column& column : columns) {
    out << model::formatted(" %12s", column.head.c_str());
  }
  out << '\n';
  for (const Entry& entry : entries) {
    if (!hasAny(entry, columns)) {
      continue;
    }
    out << model::formatted("%-36s%-12s", entry.part.c_str(), entry.engine.c_str());
    for (const Column& column : columns) {
      const double value = figure(entry.figures, column.figure);
      out << (std::isnan(value) ? model::formatted(" %12s", "-") : model::formatted(" %12.*f", column.digits, value));
    }
    out << '\n';
  }
}

template <typename Names>
Columns columnsOf(const Names& names, const std::string& before, const std::string& after, int digits) {
  Columns columns;
  for (const char* const name : names) {
    columns.push_back({name, std::string(before).append(name).append(after), digits});
  }
  return columns;
}

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result += '\\';
    }
    result += c;
  }
  return result + '"';
}

}  // namespace

void writeTables(std::ostream& out, const std::vector<Entry>& entries) {
  out << "All figures are percent. Errors are relative to the true range; wrong: more than 10 % off, among valid.\n";
  writeTable(out, "pixels that both eyes see",
             {{"valid", "valid"},
              {"wrong", "wrong", 2},
              {"median", "median", 2},
              {"bias", "bias", 2},
              {"better half", "wrong in better half"}},
             entries);
  writeTable(out, "more than 1.25 times too far",
             {{"< 0.3 m", "near too far", 3},
              {"2 px inside", "near inside too far", 3},
              {"< nearest", "nearer than nearest too far", 3},
              {"2 px inside", "nearer than nearest inside too far", 3},
              {"hidden valid", "hidden valid"},
              {"hidden wrong", "hidden wrong"}},
             entries);
  writeTable(out, "recorded boards",
             {{"meters", "distance, meters", 2},
              {"off axis", "off axis, degrees"},
              {"corners", "corners"},
              {"error", "error", 2},
              {"side", "side", 2}},
             entries);
  writeTable(out, "recorded boards together",
             {{"boards", "boards, count", 0},
              {"measured", "boards measured, count", 0},
              {"within 1.5 %", "boards within 1.5 %, count", 0},
              {"worst", "worst board", 2}},
             entries);
  writeTable(out, "recorded scenes", {{"measured", "measured"}, {"both", "both have depth"}, {"agree", "agree"}},
             entries);
  for (const auto& [title, after] : {std::pair("valid", " valid"), std::pair("wrong", " wrong"),
                                     std::pair("median error", " median"), std::pair("bias", " bias")}) {
    writeTable(out, std::string(title) + " by degrees off the axis", columnsOf(Score::ringNames, "ring ", after, 2),
               entries);
    writeTable(out, std::string(title) + " by meters", columnsOf(Score::bandNames, "band ", after, 2), entries);
  }
  for (const char* const group : Score::groupNames) {
    writeTable(out, std::string("states, ") + group, columnsOf(Score::stateNames, std::string(group) + ": ", "", 2),
               entries);
  }
}

void writeJson(std::ostream& out, const View& view, const std::string& set, const std::vector<Entry>& entries) {
  out << "{\"view\": " << quoted(model::sizeText(view.size)) << ", \"set\": " << quoted(set) << ", \"entries\": [";
  const char* separator = "\n";
  for (const Entry& entry : entries) {
    out << separator << "  {\"part\": " << quoted(entry.part) << ", \"engine\": " << quoted(entry.engine)
        << ", \"figures\": {";
    const char* between = "\n";
    for (const Figure& figure : entry.figures) {
      out << between << "    " << quoted(figure.name) << ": "
          << (std::isfinite(figure.value) ? model::formatted("%.6g", figure.value) : "null");
      between = ",\n";
    }
    out << "}}";
    separator = ",\n";
  }
  out << "\n]}\n";
}

}  // namespace stereo::wide
