// SPDX-License-Identifier: Apache-2.0
#include "sim/Conditions.hpp"

#include <cmath>
#include <locale>
#include <sstream>
#include <stdexcept>

#include "model/Text.hpp"

namespace stereo::sim {

namespace {

struct Condition {
  const char* name;
  double least;
  double most;
  bool whole;  // an integer
  void (*set)(Conditions&, double);
};

constexpr Condition conditionList[] = {
    {"blur", 0, 20, false, [](Conditions& to, double value) { to.picture.blur = value; }},
    {"noise", 0, 100, false, [](Conditions& to, double value) { to.picture.noise = value; }},
    {"gain", -90, 500, false, [](Conditions& to, double value) { to.picture.gain = value; }},
    {"contrast", 0, 4, false, [](Conditions& to, double value) { to.picture.contrast = value; }},
    {"things", 0, 500, true, [](Conditions& to, double value) { to.scenery.things = static_cast<int>(value); }},
    {"near-things", 0, 50, true, [](Conditions& to, double value) { to.scenery.nearThings = static_cast<int>(value); }},
    {"poles", 0, 100, true, [](Conditions& to, double value) { to.scenery.poles = static_cast<int>(value); }},
    {"near-poles", 0, 100, true, [](Conditions& to, double value) { to.scenery.nearPoles = static_cast<int>(value); }},
    {"plates", 0, 100, true, [](Conditions& to, double value) { to.scenery.plates = static_cast<int>(value); }},
    {"plain-walls", 0, 1, true, [](Conditions& to, double value) { to.scenery.plainWalls = value != 0.0; }},
    {"plain-things", 0, 100, false, [](Conditions& to, double value) { to.scenery.plainThings = value; }},
    {"plain-blend", 0, 100, false, [](Conditions& to, double value) { to.scenery.plain = value; }},
    {"rows", -50, 50, false, [](Conditions& to, double value) { to.calibration.rows = value; }},
    {"yaw", -10, 10, false, [](Conditions& to, double value) { to.calibration.yaw = value; }},
    {"pitch", -10, 10, false, [](Conditions& to, double value) { to.calibration.pitch = value; }},
};

struct Named {
  const char* name;
  const char* conditions;
};

constexpr Named namedList[] = {
    {"rich", "noise=2"},
    {"hard", "blur=1,noise=6,gain=10,contrast=0.5"},
    {"plain", "noise=3,plain-walls=1,plain-things=40"},
};

void setOne(Conditions& conditions, const std::string& part) {
  for (const Named& named : namedList) {
    if (part == named.name) {
      std::istringstream values(named.conditions);
      for (std::string value; std::getline(values, value, ',');) {
        setOne(conditions, value);
      }
      return;
    }
  }
  const std::size_t equals = part.find('=');
  const std::string name = part.substr(0, equals);
  for (const Condition& condition : conditionList) {
    if (name != condition.name) {
      continue;
    }
    std::istringstream number(equals == std::string::npos ? "" : part.substr(equals + 1));
    number.imbue(std::locale::classic());
    double value = 0.0;
    number >> value;
    if (number.fail() || !number.eof() || value < condition.least || value > condition.most ||
        (condition.whole && value != std::floor(value))) {
      throw std::invalid_argument(model::formatted("%s takes %s from %g to %g, such as %s=%g", condition.name,
                                                   condition.whole ? "an integer" : "a number", condition.least,
                                                   condition.most, condition.name, condition.most));
    }
    condition.set(conditions, value);
    return;
  }
  std::string known;
  for (const Condition& condition : conditionList) {
    known += std::string(", ") + condition.name;
  }
  throw std::invalid_argument("'" + part.substr(0, 60) + "' is none of rich, hard, plain" + known);
}

}  // namespace

Conditions parseConditions(const std::string& text) {
  Conditions conditions;
  std::istringstream parts(text);
  for (std::string part; std::getline(parts, part, ',');) {
    setOne(conditions, part);
  }
  return conditions;
}

}  // namespace stereo::sim
