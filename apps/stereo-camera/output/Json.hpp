// SPDX-License-Identifier: Apache-2.0
// Results as JSON.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace stereo::app {

/// Results as a JSON object, in the order in which they are added.
class Json {
public:
  Json() : m_text("{") {}

  // Names are ignored in lists.
  Json& add(std::string_view name, std::string_view value);
  Json& add(std::string_view name, const char* value) { return add(name, std::string_view(value)); }
  Json& add(std::string_view name, bool value) { return raw(name, value ? "true" : "false"); }
  Json& add(std::string_view name, int value) { return raw(name, std::to_string(value)); }
  Json& add(std::string_view name, std::uint64_t value) { return raw(name, std::to_string(value)); }
  /// null unless finite.
  Json& add(std::string_view name, double value);
  Json& null(std::string_view name) { return raw(name, "null"); }
  /// Begins an object, or a list, of this name. `end` ends it.
  Json& object(std::string_view name = {});
  Json& list(std::string_view name = {});
  Json& end();

  /// The complete text with a line end; ends all objects and lists.
  std::string text() const;

private:
  Json& raw(std::string_view name, std::string_view value);
  void next(std::string_view name);

  std::string m_text;
  std::string m_open = "}";  // ends of the open objects and lists, the innermost last
};

/// "rectified pair" to "rectified_pair": everything but letters and digits becomes '_'.
std::string jsonKey(std::string_view name);

}  // namespace stereo::app
