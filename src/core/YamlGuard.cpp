// SPDX-License-Identifier: Apache-2.0
// YAML as OpenCV 4.6's parser understands it, with its own rules for indentation, strings and streams.
#include <string_view>

#include "src/core/ParserBuffer.hpp"

namespace stereo::core {

namespace {

class Yaml {
public:
  explicit Yaml(ParserBuffer& text) : m_text(text) {}

  void follow() {
    for (bool isFirst = true;; isFirst = false) {
      skipToRoot(isFirst);
      skipBlanks(0);
      if (!m_text.startsWith("...")) {
        value(0, false);
        skipBlanks(0);
      }
      if (m_text.atEnd()) {
        return;
      }
      m_text.at += 3;  // the dots, or whatever is there instead
    }
  }

private:
  // Skips blanks and comments. What follows must not be left of `minColumn`; at the end there are three dots.
  void skipBlanks(std::size_t minColumn) {
    for (;;) {
      while (*m_text.at == ' ') {
        ++m_text.at;
      }
      const char c = *m_text.at;
      if (c == '#') {
        *m_text.at = '\0';
      } else if (isPrintable(c)) {
        require(m_text.column() >= minColumn);
        return;
      } else {
        require(c == '\0' || c == '\n' || c == '\r');
        if (!m_text.nextLine()) {
          m_text.endWith("...");
          return;
        }
      }
    }
  }

  // Skips the three dashes that begin a stream, or goes to the root of the first stream if it has none.
  void skipToRoot(bool isFirst) {
    for (;;) {
      skipBlanks(0);
      const char c = *m_text.at;
      if (c == '%') {
        const bool isVersion = m_text.startsWith("%YAML");
        require(!isVersion || m_text.startsWith("%YAML:1.") || m_text.startsWith("%YAML 1."));
        *m_text.at = '\0';
      } else if (c == '-') {
        if (m_text.startsWith("---")) {
          m_text.at += 3;
          return;
        }
        require(isFirst);  // the parser would loop forever here
        return;
      } else if (isAlphanumeric(c) || c == '_') {
        require(isFirst);
        return;
      } else {
        require(m_text.atEnd());
        return;
      }
    }
  }

  void key() {
    require(*m_text.at != '-' && *m_text.at != ':');
    while (*m_text.at != ':') {
      require(isPrintable(*m_text.at));
      ++m_text.at;
    }
    ++m_text.at;
  }

  enum class Tag { none, text, integer, real, binary };

  Tag tag() {
    bool isGlobal = m_text.at[1] == '!' || m_text.at[1] == '^';
    if (isGlobal) {
      ++m_text.at;
    } else if (m_text.at[1] == '<') {
      constexpr std::string_view heading = "<tag:yaml.org,2002:";
      char* const start = ++m_text.at;
      char* end = start + 1;
      while (isPrintable(*end) && *end != ' ' && *end != '>') {
        ++end;
      }
      if (*end == '>' && end > start + heading.size() && m_text.startsWith(heading)) {
        *end = ' ';
        m_text.at += heading.size() - 1;
        isGlobal = true;
      }
    }
    const char* const start = ++m_text.at;
    while (isPrintable(*m_text.at) && *m_text.at != ' ') {
      ++m_text.at;
    }
    const std::string_view name = m_text.since(start);
    require(!name.empty());
    if (isGlobal) {
      return name == "binary" ? Tag::binary : Tag::none;
    }
    return name == "str" ? Tag::text : name == "int" ? Tag::integer : name == "float" ? Tag::real : Tag::none;
  }

  void base64(std::size_t minColumn) {
    // One character, the bar, is left out unseen.
    do {
      ++m_text.at;
    } while (*m_text.at == ' ');
    ++m_text.at;
    skipBlanks(minColumn);
    Base64Header header;
    for (const std::size_t column = m_text.column(); m_text.column() == column; skipBlanks(0)) {
      const char* const start = m_text.at;
      while (isPrintable(*m_text.at)) {
        ++m_text.at;
      }
      require(*m_text.at != '\0');
      header.addRow(m_text.since(start));
    }
    header.check();
  }

  void singleQuoted() {
    for (++m_text.at;; ++m_text.at) {
      if (*m_text.at == '\'' && *++m_text.at != '\'') {
        return;
      }
      require(isPrintable(*m_text.at));
    }
  }

  void doubleQuoted() {
    for (++m_text.at; *m_text.at != '"'; ++m_text.at) {
      if (*m_text.at == '\\') {
        const char c = *++m_text.at;
        const bool isX = c == 'x';
        if (isX || (c >= '0' && c < '8')) {
          const char behind = m_text.at[3];
          m_text.at[3] = '\0';
          char* const digits = m_text.at + (isX ? 1 : 0);
          char* const end = endOfInteger(digits, isX ? 8 : 16);
          m_text.at[3] = behind;
          m_text.at = end == digits ? m_text.at : end;
        }
      } else {
        require(isPrintable(*m_text.at));
      }
    }
    ++m_text.at;
  }

  void flow(std::size_t minColumn) {
    const Level level(m_depth);
    const bool isMap = *m_text.at++ == '{';
    for (bool isFirst = true;; isFirst = false) {
      skipBlanks(minColumn);
      if (*m_text.at == ']' || *m_text.at == '}') {
        require(*m_text.at == (isMap ? '}' : ']'));
        ++m_text.at;
        return;
      }
      if (!isFirst) {
        require(*m_text.at == ',');
        ++m_text.at;
        skipBlanks(minColumn);
      }
      if (isMap) {
        key();
        skipBlanks(minColumn);
      }
      value(minColumn, true);
    }
  }

  // A text without quotes. False, without moving, if it is the name of a block's first element.
  bool plain(bool isInFlow, bool isText) {
    char* end = m_text.at;
    while (isPrintable(*end) && (isInFlow ? *end != ',' && *end != '}' && *end != ']' : *end != ':' || isText)) {
      ++end;
    }
    require(end != m_text.at);
    if (!isInFlow && *end == ':') {
      return false;
    }
    m_text.at = end;
    return true;
  }

  void block(bool isSequence) {
    const Level level(m_depth);
    const std::size_t column = m_text.column();
    do {
      if (isSequence) {
        require(*m_text.at == '-');
        ++m_text.at;
      } else {
        key();
      }
      skipBlanks(column + 1);
      value(column + 1, false);
      skipBlanks(0);
      require(m_text.column() <= column);
    } while (m_text.column() == column && !m_text.startsWith("..."));
  }

  void value(std::size_t minColumn, bool isInFlow) {
    Tag type = Tag::none;
    char second = m_text.at[1];
    if (*m_text.at == '!') {
      type = tag();
      second = *m_text.at;  // the parser keeps what ends the tag
      if (type == Tag::binary) {
        base64(minColumn);
        return;
      }
      skipBlanks(minColumn);
    }
    const char c = *m_text.at;
    const bool isQuoted = c == '\'' || c == '"';
    if (type == Tag::integer) {
      m_text.skipInteger();
    } else if (type == Tag::real) {
      m_text.skipReal();
    } else if (type == Tag::text && !isQuoted) {
      require(plain(isInFlow, true));
    } else if (m_text.skipNumber(second)) {
      return;
    } else if (isQuoted) {
      c == '"' ? doubleQuoted() : singleQuoted();
    } else if (c == '[' || c == '{') {
      flow(minColumn + (isInFlow ? 0 : 1));
    } else if (c == '-' && !isInFlow) {
      block(true);
    } else {
      require(isInFlow || (c != '?' && c != '|' && c != '>'));
      if (!plain(isInFlow, false)) {
        block(false);
      }
    }
  }

  ParserBuffer& m_text;
  int m_depth = 0;
};

}  // namespace

void followYaml(ParserBuffer& text) { Yaml(text).follow(); }

}  // namespace stereo::core
