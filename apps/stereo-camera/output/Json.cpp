// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/output/Json.hpp"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace stereo::app {

namespace {

// Length of the character of UTF-8 that `text` begins with; 0 if it begins with none.
std::size_t characterLength(std::string_view text) {
  const auto byte = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const unsigned first = byte(0);
  if (first < 0x80) {
    return 1;
  }
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  // Neither in more bytes than needed, nor half of a surrogate pair, nor above the last character.
  const unsigned least = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
  const unsigned most = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
  bool isValid = first >= 0xc2 && first <= 0xf4 && byte(1) >= least && byte(1) <= most;
  for (std::size_t i = 2; i < length; ++i) {
    isValid = isValid && (byte(i) & 0xc0) == 0x80;
  }
  return isValid ? length : 0;
}

// Paths may hold any bytes; what is no UTF-8 becomes the replacement character.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (std::size_t length = 0; !text.empty(); text.remove_prefix(length)) {
    length = characterLength(text);
    const char c = text.front();
    if (length == 0) {
      result += "\\ufffd";
      length = 1;
    } else if (length > 1) {
      result += text.substr(0, length);
    } else if (c == '"' || c == '\\') {
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
