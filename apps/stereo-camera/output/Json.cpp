// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/output/Json.hpp"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

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

}  // namespace stereo::app
