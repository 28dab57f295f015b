// SPDX-License-Identifier: Apache-2.0
// JSON as OpenCV 4.6's parser understands it, with comments as in C++.
#include <string_view>

#include "src/core/ParserBuffer.hpp"

namespace stereo::core {

namespace {

class Json {
public:
  explicit Json(ParserBuffer& text) : m_text(text) {}

  // The parser ignores what follows the root.
  void follow() {
    skipBlanks();
    value();
  }

private:
  void nextLine() { require(m_text.nextLine()); }

  // Skips blanks and comments.
  void skipBlanks() {
    for (;;) {
      switch (*m_text.at) {
        case '/':
          comment();
          break;
        case '\t':
        case ' ':
          ++m_text.at;
          break;
        case '\0':
        case '\n':
        case '\r':
          nextLine();
          break;
        default:
          require(isPrintable(*m_text.at));
          return;
      }
    }
  }

  void comment() {
    if (*++m_text.at == '/') {
      while (*m_text.at != '\n' && *m_text.at != '\r') {
        if (*m_text.at == '\0') {
          nextLine();
        } else {
          ++m_text.at;
        }
      }
      return;
    }
    require(*m_text.at == '*');
    for (++m_text.at;;) {
      if (*m_text.at == '\0') {
        nextLine();
      } else if (*m_text.at++ == '*') {
        if (*m_text.at == '\0') {
          nextLine();
        }
        if (*m_text.at == '/') {
          ++m_text.at;
          return;
        }
      }
    }
  }

  void key() {
    const char* const start = m_text.at;
    do {
      ++m_text.at;
    } while (isPrintable(*m_text.at) && *m_text.at != '"');
    require(*m_text.at == '"' && m_text.at > start + 1);
    ++m_text.at;
    skipBlanks();
    require(*m_text.at == ':');
    ++m_text.at;
  }

  void text() {
    constexpr std::string_view base64 = "$base64$";
    ++m_text.at;
    if (m_text.startsWith(base64)) {
      m_text.at += base64.size();
      const char* const start = m_text.at;
      while (isPrintable(*m_text.at) && *m_text.at != '"') {
        ++m_text.at;
      }
      require(*m_text.at == '"');
      Base64Header header;
      header.addRow(m_text.since(start));
      header.check();
    }
    constexpr std::string_view escapes = "\\\"'nrtbf";
    for (; *m_text.at != '"'; ++m_text.at) {
      if (*m_text.at == '\\') {
        ++m_text.at;
        require(escapes.find(*m_text.at) != std::string_view::npos);
      }
      require(*m_text.at != '\0' && *m_text.at != '\n' && *m_text.at != '\r');
    }
    ++m_text.at;
  }

  void number() {
    const char* end = m_text.at + (*m_text.at == '-' || *m_text.at == '+' ? 1 : 0);
    while (isDigit(*end)) {
      ++end;
    }
    if (*end == '.' || *end == 'e') {
      m_text.skipReal();
    } else {
      m_text.skipInteger();
    }
  }

  void collection() {
    const Level level(m_depth);
    const bool isMap = *m_text.at == '{';
    const char closing = isMap ? '}' : ']';
    for (++m_text.at;; ++m_text.at) {
      skipBlanks();
      if (isMap && *m_text.at == '"') {
        key();
        skipBlanks();
        value();
      } else if (!isMap && *m_text.at != closing) {
        value();
      }
      skipBlanks();
      if (*m_text.at == closing) {
        ++m_text.at;
        return;
      }
      require(*m_text.at == ',');
    }
  }

  void value() {
    switch (*m_text.at) {
      case '{':
      case '[':
        collection();
        return;
      case '"':
        text();
        return;
      case 't':
        word("true");
        return;
      case 'f':
        word("false");
        return;
      default:
        number();
    }
  }

  void word(std::string_view word) {
    require(m_text.startsWith(word));
    m_text.at += word.size();
    require(!isLetter(*m_text.at));
  }

  ParserBuffer& m_text;
  int m_depth = 0;
};

}  // namespace

void followJson(ParserBuffer& text) { Json(text).follow(); }

}  // namespace stereo::core
