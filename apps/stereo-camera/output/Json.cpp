// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/output/Json.hpp"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/Output.hpp"

namespace stereo::app {

namespace {

std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result += '\\';
      result += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      std::array<char, 8> code{};
      static_cast<void>(std::snprintf(code.data(), code.size(), "\\u%04x", static_cast<unsigned>(c)));
      result += code.data();
    } else {
      result += c;
    }
  }
  return result + '"';
}

// Neither a device nor a pipe, so written beside its place first.
bool isPlain(const std::filesystem::path& path) {
  std::error_code failure;
  return !std::filesystem::exists(path, failure) || std::filesystem::is_regular_file(path, failure);
}

std::filesystem::path draftOf(const std::string& path) { return path + ".unfinished"; }

}  // namespace

Json& Json::add(std::string_view name, std::string_view value) { return raw(name, quoted(value)); }

Json& Json::add(std::string_view name, double value) {
  std::array<char, 32> digits{};
  const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value);
  return raw(name, std::isfinite(value) && error == std::errc()
                       ? std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data()))
                       : "null");
}

Json& Json::object(std::string_view name) {
  raw(name, "{");
  m_open += '}';
  return *this;
}

Json& Json::list(std::string_view name) {
  raw(name, "[");
  m_open += ']';
  return *this;
}

Json& Json::end() {
  const char closing = m_open.back();
  m_open.pop_back();
  m_text += "\n" + std::string(2 * m_open.size(), ' ') + closing;
  return *this;
}

std::string Json::text() const {
  Json whole = *this;
  while (!whole.m_open.empty()) {
    whole.end();
  }
  return whole.m_text + "\n";
}

Json& Json::raw(std::string_view name, std::string_view value) {
  next(name);
  m_text += value;
  return *this;
}

void Json::next(std::string_view name) {
  if (m_text.back() != '{' && m_text.back() != '[') {
    m_text += ',';
  }
  m_text += "\n" + std::string(2 * m_open.size(), ' ');
  if (m_open.back() == '}') {
    m_text += quoted(name) + ": ";
  }
}

std::string jsonKey(std::string_view name) {
  std::string key;
  for (const char c : name) {
    const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0;
    if (plain || (!key.empty() && key.back() != '_')) {
      key += plain ? c : '_';
    }
  }
  return key;
}

void JsonOption::check() const {
  if (wanted() && !replacesText() && isPlain(path)) {
    writeFile(draftOf(path), "");
    std::filesystem::remove(draftOf(path));
  }
}

void JsonOption::write(const Json& figures) const {
  if (replacesText()) {
    results() << figures.text() << std::flush;
  } else if (wanted() && isPlain(path)) {
    const std::filesystem::path place(path);
    OutputFolder folder(place.parent_path(), true, {});
    writeFile(folder.draft() / place.filename(), figures.text());
    folder.commit();
  } else if (wanted()) {
    writeFile(path, figures.text());
  }
}

}  // namespace stereo::app
