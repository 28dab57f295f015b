// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include "src/core/DocumentGuard.hpp"

namespace stereo::core {

/// Thrown where a document is malformed, or would take OpenCV's parser out of its buffer or into a loop without end.
struct Unsafe {};

/// A document as OpenCV's parsers see it: a buffer that holds one line at a time, with its line end and a zero behind
/// it. What a longer line before it left behind the zero is kept, since in a few places the parsers read on there.
/// Lengths and places are bytes.
class ParserBuffer {
public:
  /// The buffer is empty at first. The text must outlive this.
  explicit ParserBuffer(std::string_view text) : m_text(text), m_buffer(slack) {}

  /// Reads the next line, and goes to its start. False, and nothing changes, behind the last one.
  bool nextLine();
  /// What the parsers put into the buffer at the end of the text: at most seven characters.
  void endWith(std::string_view replacement);
  /// Whether reading met the end: not yet when the last line was read if that ends with a line end.
  bool atEnd() const { return m_isOver || (m_text.empty() && m_lacksLineEnd); }

  /// Column of the place in its line, from 0.
  std::size_t column() const { return static_cast<std::size_t>(at - m_buffer.data()); }
  bool startsWith(std::string_view start) const { return std::strncmp(at, start.data(), start.size()) == 0; }
  /// Goes behind an integer in C's notation, or a real number in OpenCV's.
  void skipInteger();
  void skipReal();
  /// Goes behind a number as YAML and XML recognize one, by its first character and by a second one; false if none
  /// begins here.
  bool skipNumber(char second);
  /// What was passed by since `start`, a place in this line.
  std::string_view since(const char* start) const { return {start, static_cast<std::size_t>(at - start)}; }

private:
  static constexpr std::size_t slack = 16;  // zeros behind the longest line so far

  std::string_view m_text;
  std::vector<char> m_buffer;
  bool m_lacksLineEnd = false;
  bool m_isOver = false;

public:
  /// Where the parser is. There is always a zero behind it in the buffer.
  char* at = m_buffer.data();
};

/// The first bytes of one value in base 64, read row by row: a header that names the types of the elements, such as "d"
/// or "2if", filled up with blanks.
class Base64Header {
public:
  void addRow(std::string_view row);
  /// Throws where the header is incomplete or names no element: for that the parsers would go on for ever.
  void check() const;

private:
  static constexpr std::size_t length = 24;

  std::array<char, length + 1> m_bytes{};  // with a zero behind them
  std::size_t m_size = 0;
  unsigned int m_bits = 0;
  int m_digits = 0;  // in m_bits, six bits each
};

/// Counts a collection within others while it lives; throws for one too many.
class Level {
public:
  explicit Level(int& depth) : m_depth(depth) {
    if (m_depth == maxNesting) {
      throw Unsafe();
    }
    ++m_depth;
  }
  ~Level() { --m_depth; }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;

private:
  int& m_depth;
};

// The parsers' own notion of characters, which no locale changes.
constexpr bool isPrintable(char c) { return static_cast<unsigned char>(c) >= ' '; }
constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool isAlphanumeric(char c) { return isDigit(c) || isLetter(c); }
constexpr bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Where an integer in C's notation ends; `text` if none begins there.
char* endOfInteger(char* text, int base);

inline void require(bool holds) {
  if (!holds) {
    throw Unsafe();
  }
}

/// Follow OpenCV's parser of a syntax through a document without zeros; throw Unsafe.
void followYaml(ParserBuffer& text);
void followXml(ParserBuffer& text);
void followJson(ParserBuffer& text);

}  // namespace stereo::core
