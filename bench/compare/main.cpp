// SPDX-License-Identifier: Apache-2.0
// Times the library's units of work against their plain forms and against peers, in turns. Exit code 1 if a result of
// the library differs from the plain form's; the times do not affect it.
#include <fstream>
#include <iostream>
#include <regex>

#include <CLI/CLI.hpp>

#include "bench/compare/ResultOutput.hpp"
#include "bench/compare/Unit.hpp"
#include "src/core/InstructionSet.hpp"

namespace {

using namespace stereo::compare;
namespace core = stereo::core;

struct Options {
  double seconds = 4.0;
  bool quick = false;
  bool markdown = false;
  std::string json;
  std::string unit = ".*";
  std::string instructions = core::name(core::instructionSet());
};

void addOptions(CLI::App& program, Options& options) {
  program.add_option("--seconds", options.seconds, "Time for each unit")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  program.add_flag("--quick", options.quick, "A round of each: whether they run and agree, not how fast they are");
  program.add_flag("--markdown", options.markdown, "Print a Markdown table");
  program.add_option("--json", options.json, "Write all figures to this file")->type_name("FILE");
  program.add_option("--unit", options.unit, "Only units whose name contains a match")->type_name("REGEX");
  std::vector<std::string> sets;
  for (const core::InstructionSet set : core::availableInstructionSets()) {
    sets.emplace_back(core::name(set));
  }
  program.add_option("--instructions", options.instructions, "Instruction set of the library's kernels")
      ->type_name("SET")
      ->check(CLI::IsMember(sets))
      ->capture_default_str();
}

std::vector<Unit> chosenUnits(const std::string& pattern) {
  std::vector<Unit> units;
  addMapUnits(units);
  addMaskUnits(units);
  addDepthUnits(units);
  addCloudUnits(units);
  addFrameUnits(units);
  addWideUnits(units);
  const std::regex wanted(pattern);
  std::erase_if(units, [&](const Unit& unit) { return !std::regex_search(unit.name, wanted); });
  return units;
}

void useInstructions(const std::string& name) {
  for (const core::InstructionSet set : core::availableInstructionSets()) {
    if (name == core::name(set)) {
      core::useInstructionSet(set);
    }
  }
}

int run(const Options& options) {
  useInstructions(options.instructions);
  bool equal = true;
  std::vector<Result> results;
  for (const Unit& unit : chosenUnits(options.unit)) {
    std::cerr << unit.name << " ..." << std::endl;
    results.push_back(options.quick ? measure(unit, 0.0, 1) : measure(unit, options.seconds, 5));
    if (!results.back().difference.empty()) {
      std::cerr << unit.name << ": the library's result is not the plain form's: " << results.back().difference
                << std::endl;
      equal = false;
    }
  }
  const Environment environment = currentEnvironment(core::name(core::instructionSet()));
  writeTable(std::cout, environment, results, options.markdown);
  if (!options.json.empty()) {
    std::ofstream file(options.json);
    writeJson(file, environment, results);
    if (!file.flush()) {
      std::cerr << "cannot write " << options.json << std::endl;
      return 2;
    }
  }
  return equal ? 0 : 1;
}

}  // namespace

// Only the setup of the options is outside the try block; it fails only if there is no memory.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  CLI::App program("Times the library against its plain form and against peers");
  Options options;
  addOptions(program, options);
  CLI11_PARSE(program, argc, argv);
  try {
    return run(options);
  } catch (const std::exception& error) {
    std::cerr << "stereo_camera_compare: " << error.what() << std::endl;
    return 2;
  }
}
