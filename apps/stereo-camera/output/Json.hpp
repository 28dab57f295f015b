// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace CLI {
class App;
}  // namespace CLI

namespace stereo::app {

/// Figures as a JSON object, in the order in which they are added.
class Json {
public:
  Json() : m_text("{") {}

  // In a list the names are left out.
  Json& add(std::string_view name, std::string_view value);
  Json& add(std::string_view name, const char* value) { return add(name, std::string_view(value)); }
  Json& add(std::string_view name, bool value) { return raw(name, value ? "true" : "false"); }
  Json& add(std::string_view name, int value) { return raw(name, std::to_string(value)); }
  Json& add(std::string_view name, std::uint64_t value) { return raw(name, std::to_string(value)); }
  /// null if it is no finite number.
  Json& add(std::string_view name, double value);
  /// What is added until `end` belongs to an object, or to a list, of this name.
  Json& object(std::string_view name = {});
  Json& list(std::string_view name = {});
  Json& end();

  /// The whole, with a line end; all that was begun is ended.
  std::string text() const;

private:
  Json& raw(std::string_view name, std::string_view value);
  void next(std::string_view name);

  std::string m_text;
  std::string m_open = "}";  // what ends the objects and lists begun, the innermost last
};

/// "rectified pair" to "rectified_pair": letters and digits stay, all else becomes '_'.
std::string jsonKey(std::string_view name);

/// Where a command's figures go as JSON besides, or instead of, what is for people.
class JsonOption {
public:
  void addTo(CLI::App& command);

  bool wanted() const { return !m_path.empty(); }
  /// They take the place of the text for people on standard output.
  bool replacesText() const { return m_path == "-"; }
  /// Throws Failure (output) where the file cannot be written: ahead, since the figures may take long.
  void check() const;
  /// Writes them, if they are wanted: to standard output or to the file, which is complete or as it was before. Throws
  /// Failure (output).
  void write(const Json& figures) const;

private:
  std::string m_path;  // "-": standard output
};

}  // namespace stereo::app
