// SPDX-License-Identifier: Apache-2.0
// What the guards of the three syntaxes share: a view of the text as OpenCV's parsers have it.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include "DocumentGuard.hpp"

namespace stereo::core {

/// Thrown if a document is malformed, or would lead OpenCV's parser out of its buffer or into an endless loop.
struct Unsafe {};

/// A document as OpenCV's parsers see it: a buffer that holds one line at a time, followed by its line end and a zero.
/// Remains of longer lines stay behind the zero, because the parsers read on there in a few places. Lengths and
/// positions are in bytes.
class ParserBuffer {
public:
  /// The buffer is empty at first. The text must outlive this.
  explicit ParserBuffer(std::string_view text) : m_text(text), m_buffer(slack) {}

  /// Reads the next line and goes to its start. After the last one, returns false and changes nothing.
  bool nextLine();
  /// Puts into the buffer what the parsers put there at the end of the text: at most seven characters.
  void endWith(std::string_view replacement);
  /// Whether a read has reached the end. After the last line, that takes another read if the line has a line end.
  bool atEnd() const { return m_isOver || (m_text.empty() && m_lacksLineEnd); }

  /// Column of the current position in its line, from 0.
  std::size_t column() const { return static_cast<std::size_t>(at - m_buffer.data()); }
  bool startsWith(std::string_view start) const { return std::strncmp(at, start.data(), start.size()) == 0; }
  /// Skip an integer in C's notation, or a real number in OpenCV's.
  void skipInteger();
  void skipReal();
  /// Skips a number as YAML and XML recognize it, by its first character and a second one; false if none begins here.
  bool skipNumber(char second);
  /// The text between `start`, a position in this line, and the current position.
  std::string_view since(const char* start) const { return {start, static_cast<std::size_t>(at - start)}; }

private:
  static constexpr std::size_t slack = 16;  // zeros behind the longest line so far

  std::string_view m_text;
  std::vector<char> m_buffer;
  bool m_lacksLineEnd = false;
  bool m_isOver = false;

public:
  /// The parser's position. There is always a zero behind it in the buffer.
  char* at = m_buffer.data();
};

/// The first bytes of a value in base 64, read row by row: a header that names the types of the elements, such as "d"
/// or "2if", padded with blanks.
class Base64Header {
public:
  void addRow(std::string_view row);
  /// Throws if the header is incomplete or names no element: the parsers would then loop forever.
  void check() const;

private:
  static constexpr std::size_t length = 24;

  std::array<char, length + 1> m_bytes{};  // followed by a zero
  std::size_t m_size = 0;
  unsigned int m_bits = 0;
  int m_digits = 0;  // in m_bits, six bits each
};

/// One level of nesting while it lives; throws beyond the maximum.
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

// The parsers' classes of characters, independent of the locale.
constexpr bool isPrintable(char c) { return static_cast<unsigned char>(c) >= ' '; }
constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool isAlphanumeric(char c) { return isDigit(c) || isLetter(c); }
constexpr bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// End of an integer in C's notation; `text` if none begins there.
char* endOfInteger(char* text, int base);

inline void require(bool holds) {
  if (!holds) {
    throw Unsafe();
  }
}

/// Follow OpenCV's parser through a document without zeros; throw Unsafe.
void followYaml(ParserBuffer& text);
void followXml(ParserBuffer& text);
void followJson(ParserBuffer& text);

}  // namespace stereo::core
