// SPDX-License-Identifier: Apache-2.0
// What the guards of the three syntaxes share: a view of the text as OpenCV's parsers have it.
#include "src/core/ParserBuffer.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

namespace stereo::core {

bool ParserBuffer::nextLine() {
  if (m_text.empty()) {
    return false;
  }
  const std::size_t length = std::min(m_text.find('\n'), m_text.size() - 1) + 1;
  m_lacksLineEnd = m_text[length - 1] != '\n';
  m_buffer.resize(std::max(m_buffer.size(), length + slack));
  at = m_buffer.data();
  *std::copy_n(m_text.data(), length, at) = '\0';
  m_text.remove_prefix(length);
  return true;
}

void ParserBuffer::endWith(std::string_view replacement) {
  at = m_buffer.data();
  *std::copy(replacement.begin(), replacement.end(), at) = '\0';
  m_isOver = true;
}

char* endOfInteger(char* text, int base) {
  char* end = text;
  static_cast<void>(std::strtol(text, &end, base));
  return end;
}

void ParserBuffer::skipInteger() {
  char* const end = endOfInteger(at, 0);
  require(end != at);
  at = end;
}

void ParserBuffer::skipReal() {
  char* end = at;
  static_cast<void>(std::strtod(at, &end));
  if (*end == '.') {  // the process's locale may use a comma instead
    char* const point = end;
    *point = ',';
    static_cast<void>(std::strtod(at, &end));
    *point = '.';
    end = std::max(end, point);
  }
  if (end == at || isLetter(*end)) {
    end = at + (*at == '-' || *at == '+' ? 1 : 0);
    std::array<char, 4> name{};
    for (char& c : name) {
      c = *end;
      require(c != '\0');
      c = isLetter(c) ? static_cast<char>(c | 0x20) : c;
      ++end;
    }
    const std::string_view special(name.data(), name.size());
    require(special == ".inf" || special == ".nan");
  }
  at = end;
}

bool ParserBuffer::skipNumber(char second) {
  const bool isSigned = *at == '-' || *at == '+';
  if (!(isDigit(*at) || (isSigned && (isDigit(second) || second == '.')) || (*at == '.' && isAlphanumeric(second)))) {
    return false;
  }
  const char* end = at + (isSigned ? 1 : 0);
  while (isDigit(*end)) {
    ++end;
  }
  if (*end == '.' || *end == 'e') {
    skipReal();
  } else {
    skipInteger();
  }
  return true;
}

void Base64Header::addRow(std::string_view row) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::size_t before = m_size;
  for (const char c : row) {
    if (m_size == length) {
      return;
    }
    // The parsers count other characters as the first digit.
    const std::size_t value = digits.find(c);
    m_bits = m_bits << 6 | (value < digits.size() ? static_cast<unsigned int>(value) : 0U);
    if (++m_digits < 4) {
      continue;
    }
    for (int shift = 16; shift >= 0 && m_size < length; shift -= 8) {
      m_bytes[m_size++] = static_cast<char>(m_bits >> shift & 0xFFU);
    }
    m_digits = 0;
  }
  if (m_size == before && m_size < length) {
    m_bytes[m_size++] = '\0';  // as the parsers do for a row too short for a byte
  }
}

void Base64Header::check() const {
  require(m_size == length);
  // The number of consecutive elements of a type precedes the type's name. The parser takes it modulo 2^32, and adds
  // the numbers up if a type is named several times in a row. One of these sums has to be above 0.
  constexpr std::string_view names = "ucwsifdh";
  constexpr auto isPositive = [](std::uint32_t sum) { return sum != 0 && sum < 0x80000000U; };
  bool hasElements = false;
  std::uint32_t sum = 0;
  char last = '\0';
  for (const char* c = m_bytes.data(); *c != '\0' && !isSpace(*c);) {
    std::uint32_t count = 1;
    if (isDigit(*c)) {
      char* end = nullptr;
      count = static_cast<std::uint32_t>(std::strtol(c, &end, 10));
      c = end;
      require(isPositive(count));
      if (*c == '\0' || isSpace(*c)) {
        break;
      }
    }
    require(names.find(*c) != std::string_view::npos);
    hasElements = hasElements || (*c != last && isPositive(sum));
    sum = *c == last ? sum + count : count;
    last = *c++;
  }
  require(hasElements || isPositive(sum));
}

}  // namespace stereo::core
