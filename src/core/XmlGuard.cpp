// SPDX-License-Identifier: Apache-2.0
// XML as OpenCV 4.6's parser understands it.
#include <string>
#include <string_view>

#include "src/core/ParserBuffer.hpp"

namespace stereo::core {

namespace {

class Xml {
public:
  explicit Xml(ParserBuffer& text) : m_text(text) {}

  void follow() {
    skipBlanks(false);
    require(tag().kind == Kind::header);
    while (*m_text.at != '\0') {
      skipBlanks(true);
      const Tag root = tag();
      require(root.kind == Kind::opening && root.name == "opencv_storage");
      content();
      close(root);
      skipBlanks(true);
    }
  }

private:
  enum class Kind { opening, closing, header, empty };

  struct Tag {
    Kind kind = Kind::opening;
    std::string name;
    std::string type;
  };

  // Skips blanks and, if allowed, comments; at the end there is a zero.
  void skipBlanks(bool mayComment) {
    for (bool isComment = false;;) {
      if (isComment) {
        while (*m_text.at == '\t' || (isPrintable(*m_text.at) && !m_text.startsWith("-->"))) {
          ++m_text.at;
        }
        if (*m_text.at == '-') {
          isComment = false;
          m_text.at += 3;
        }
      } else {
        while (*m_text.at == ' ' || *m_text.at == '\t') {
          ++m_text.at;
        }
        if (m_text.startsWith("<!--")) {
          require(mayComment);
          isComment = true;
          m_text.at += 4;
        } else if (isPrintable(*m_text.at)) {
          return;
        }
      }
      if (!isPrintable(*m_text.at)) {
        require(*m_text.at == '\0' || *m_text.at == '\n' || *m_text.at == '\r');
        if (!m_text.nextLine()) {
          m_text.endWith("");
          return;
        }
      }
    }
  }

  std::string name() {
    require(isLetter(*m_text.at) || *m_text.at == '_');
    const char* const start = m_text.at;
    while (isAlphanumeric(*m_text.at) || *m_text.at == '_' || *m_text.at == '-') {
      ++m_text.at;
    }
    return std::string(m_text.since(start));
  }

  // To be called after an attribute's name.
  std::string attributeValue() {
    if (*m_text.at != '=') {
      skipBlanks(false);
      require(*m_text.at == '=');
    }
    ++m_text.at;
    if (*m_text.at != '"' && *m_text.at != '\'') {
      skipBlanks(false);
      require(*m_text.at == '"' || *m_text.at == '\'');
    }
    const char quote = *m_text.at++;
    const char* const start = m_text.at;
    while (*m_text.at != quote) {
      require(*m_text.at != '\0');
      ++m_text.at;
    }
    std::string value(m_text.since(start));
    ++m_text.at;
    return value;
  }

  Tag tag() {
    require(*m_text.at == '<');
    Tag tag;
    ++m_text.at;
    if (*m_text.at == '/' || *m_text.at == '?') {
      tag.kind = *m_text.at == '/' ? Kind::closing : Kind::header;
      ++m_text.at;
    }
    tag.name = name();
    for (;;) {
      const bool hasSpace = isSpace(*m_text.at) || *m_text.at == '\0';
      if (*m_text.at != '>') {
        skipBlanks(false);
      }
      if (*m_text.at == '>') {
        require(tag.kind != Kind::header);
        ++m_text.at;
        return tag;
      }
      if (m_text.startsWith("?>") && tag.kind == Kind::header) {
        m_text.at += 2;
        return tag;
      }
      if (m_text.startsWith("/>") && tag.kind == Kind::opening) {
        tag.kind = Kind::empty;
        m_text.at += 2;
        return tag;
      }
      require(hasSpace && tag.kind != Kind::closing);
      if (name() == "type_id") {
        require(tag.type.empty());
        tag.type = attributeValue();
      } else {
        attributeValue();
      }
    }
  }

  void close(const Tag& opening) {
    const Tag closing = tag();
    require(closing.kind == Kind::closing && closing.name == opening.name);
  }

  void base64() {
    Base64Header header;
    for (skipBlanks(false); *m_text.at != '<'; skipBlanks(false)) {
      const char* const start = m_text.at;
      while (isPrintable(*m_text.at)) {
        ++m_text.at;
      }
      require(*m_text.at != '\0');
      header.addRow(m_text.since(start));
    }
    header.check();
  }

  // From after the ampersand to the semicolon. Returns the number of bytes that the parser keeps.
  std::size_t entity() {
    if (*m_text.at == '#') {
      ++m_text.at;
      const bool isHexadecimal = *m_text.at == 'x';
      m_text.at += isHexadecimal ? 1 : 0;
      m_text.at = endOfInteger(m_text.at, isHexadecimal ? 16 : 10);
      require(*m_text.at == ';');
      return 1;
    }
    const char* const start = m_text.at;
    do {
      ++m_text.at;
    } while (isAlphanumeric(*m_text.at));
    require(*m_text.at == ';');
    return m_text.since(start).size() + 3;
  }

  void literal() {
    if (m_text.skipNumber(m_text.at[1])) {
      return;
    }
    // Size of the parser's buffer. It refuses longer texts, except for an entity that it does not know.
    constexpr std::size_t longest = 4096;
    const bool isQuoted = *m_text.at == '"';
    m_text.at += isQuoted ? 1 : 0;
    for (std::size_t length = 0;; ++m_text.at) {
      const char c = *m_text.at;
      if (c == '"') {
        require(isQuoted);
        ++m_text.at;
        return;
      }
      if (!isPrintable(c) || c == '<' || (!isQuoted && isSpace(c))) {
        require(!isQuoted);
        return;
      }
      require(c != '\'' && c != '>');
      if (c == '&') {
        ++m_text.at;
        length += entity();
      } else {
        ++length;
      }
      require(length <= longest);
    }
  }

  void content() {
    const Level level(m_depth);
    for (bool hasSpace = true;;) {
      const char c = *m_text.at;
      if (isSpace(c) || c == '\0' || m_text.startsWith("<!-")) {
        skipBlanks(true);
        hasSpace = true;
      }
      if (*m_text.at == '\0' || m_text.startsWith("</")) {
        return;
      }
      if (*m_text.at == '<') {
        const Tag element = tag();
        // The parser would read a text in such an element before it exists.
        require(element.kind == Kind::opening && element.type != "str");
        if (element.type == "binary") {
          base64();
        } else {
          content();
        }
        close(element);
        hasSpace = true;
      } else {
        require(hasSpace);
        literal();
        hasSpace = false;
      }
    }
  }

  ParserBuffer& m_text;
  int m_depth = 0;
};

}  // namespace

void followXml(ParserBuffer& text) { Xml(text).follow(); }

}  // namespace stereo::core
