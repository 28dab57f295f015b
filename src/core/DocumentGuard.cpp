// SPDX-License-Identifier: Apache-2.0
#include "core/DocumentGuard.hpp"

#include <algorithm>
#include <vector>

namespace stereo::core {

namespace {

// Deepest nesting of brackets. Those inside strings count as well: real documents have none.
int bracketNesting(std::string_view text) {
  int depth = 0;
  int deepest = 0;
  for (const char c : text) {
    if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
    } else if (c == ']' || c == '}') {
      depth = std::max(0, depth - 1);
    }
  }
  return deepest;
}

// Deepest nesting of blocks by indentation, with the dashes of sequences that begin on one line.
int blockNesting(std::string_view text) {
  std::vector<std::size_t> indents;
  std::size_t deepest = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::size_t indent = std::min(line.find_first_not_of(" \t\r"), line.size());
    if (indent == line.size()) {
      continue;
    }
    while (!indents.empty() && indents.back() >= indent) {
      indents.pop_back();
    }
    indents.push_back(indent);
    const std::string_view rest = line.substr(indent);
    const std::string_view lead = rest.substr(0, std::min(rest.find_first_not_of("- \t"), rest.size()));
    const auto dashes = static_cast<std::size_t>(std::count(lead.begin(), lead.end(), '-'));
    deepest = std::max(deepest, indents.size() + dashes);
  }
  return static_cast<int>(std::min<std::size_t>(deepest, 1'000'000));
}

// Whether a colon stands where nothing before it could be the name: after a line's start, an opening brace or a comma.
// In strings as well, where real documents have no such thing.
bool hasEmptyName(std::string_view text) {
  char before = '\n';  // last character that is not a blank
  for (const char c : text) {
    if (c == ':' && (before == '\n' || before == '{' || before == ',')) {
      return true;
    }
    if (c != ' ' && c != '\t' && c != '\r') {
      before = c;
    }
  }
  return false;
}

// A YAML text as the parser sees it: line by line, each up to what ends it for the parser, comments and blanks left
// out.
class Lines {
public:
  explicit Lines(std::string_view text) : m_text(text) {}

  /// Goes to the next line that has something in it; false at the end.
  bool next() {
    while (!m_text.empty()) {
      const std::size_t end = std::min(m_text.find('\n'), m_text.size());
      std::string_view line = m_text.substr(0, end);
      line = line.substr(0, line.find('\r'));
      m_text.remove_prefix(std::min(end + 1, m_text.size()));
      if (take(line, 0)) {
        return true;
      }
    }
    return false;
  }
  /// Goes on behind the first `count` characters of this line; false if nothing follows.
  bool skip(std::size_t count) { return take(m_line, m_indent + count); }

  std::string_view rest() const { return m_line.substr(m_indent); }
  std::size_t indent() const { return m_indent; }
  bool startsWith(std::string_view start) const { return rest().substr(0, start.size()) == start; }

private:
  bool take(std::string_view line, std::size_t from) {
    m_line = line;
    m_indent = line.find_first_not_of(" \t", from);
    return m_indent != std::string_view::npos && line[m_indent] != '#';
  }

  std::string_view m_text;
  std::string_view m_line;
  std::size_t m_indent = 0;
};

// Goes behind a collection in brackets that begins here. False where it could be in doubt which bracket ends it.
bool skipFlow(Lines& lines) {
  int depth = 0;
  char before = ',';  // last character that is not a blank
  bool inTag = false;
  for (;;) {
    const std::string_view rest = lines.rest();
    std::size_t length = 1;
    const bool isStart = before == ',' || before == ':' || before == '[' || before == '{';
    if (rest[0] == '[' || rest[0] == '{') {
      if (!isStart && !inTag) {
        return false;
      }
      ++depth;
    } else if (rest[0] == ']' || rest[0] == '}') {
      --depth;
    } else if (rest[0] == '"' || rest[0] == '\'') {
      const std::size_t end = rest.find(rest[0], 1);
      if (!isStart || end == std::string_view::npos || rest.substr(0, end).find('\\') != std::string_view::npos) {
        return false;
      }
      length = end + 1;
    } else {
      length = std::max<std::size_t>(1, std::min(rest.find_first_of(" \t,:[]{}\"'#"), rest.size()));
    }
    inTag = rest[0] == '!' && isStart;
    before = rest[length - 1];
    const bool more = lines.skip(length);
    if (depth == 0) {
      return !more;  // what follows would have to stand on a line of its own
    }
    if (!more && rest.find_first_not_of(" \t", length) != std::string_view::npos) {
      return false;  // a comment, or part of a text
    }
    if (!more && !lines.next()) {
      return true;  // the parser says that it misses a bracket
    }
  }
}

// Whether each stream of a YAML text ends with the text or with a line of three dots, behind which the next one begins
// with three dashes. For any other end the parser leaves out three characters, whatever they are, and where it meets a
// single dash then, it looks for the stream's start at that place for ever.
bool hasCleanStreams(std::string_view text) {
  Lines lines(text);
  bool isFirst = true;
  bool isInside = false;
  bool isSequence = false;
  bool wantsRoot = false;  // behind the dashes or a tag: whatever comes is the root, a directive or more dashes too
  bool hasTag = false;     // behind a tag: what looks like another is the root
  bool hasLine = lines.next();
  std::size_t indent = 0;  // of the stream's root, if inside
  while (hasLine) {
    if (isInside && lines.indent() <= indent && lines.startsWith("...")) {
      if (lines.skip(3)) {
        return false;
      }
      isInside = isFirst = hasTag = false;
    } else if (isInside) {
      const bool endsSequence = isSequence && lines.indent() == indent && lines.rest()[0] != '-';
      if (lines.indent() < indent || endsSequence || lines.startsWith("...")) {
        return false;
      }
    } else if (lines.startsWith("...")) {
      if (lines.skip(3)) {
        return false;
      }
      isFirst = wantsRoot = hasTag = false;
    } else if (!wantsRoot && lines.startsWith("---")) {
      wantsRoot = true;
      if (lines.skip(3)) {
        continue;  // the root begins on this line
      }
    } else if (!wantsRoot && lines.rest()[0] == '-' && !isFirst) {
      return false;
    } else if (lines.rest()[0] == '[' || lines.rest()[0] == '{') {
      if (!skipFlow(lines)) {
        return false;
      }
      // Nothing but dots may follow, or nothing.
      indent = static_cast<std::size_t>(-1);
      isInside = true;
      isSequence = wantsRoot = false;
    } else if (!hasTag && lines.rest()[0] == '!') {
      if (lines.rest().find_first_of(" \t") != std::string_view::npos) {
        return false;  // the root's tag, with the root behind it
      }
      wantsRoot = hasTag = true;
    } else if (wantsRoot || lines.rest()[0] != '%') {
      isInside = true;
      isSequence = lines.rest()[0] == '-';
      wantsRoot = false;
      indent = lines.indent();
    }
    hasLine = lines.next();
  }
  return true;
}

constexpr std::string_view base64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Whether a text in base 64 begins as the writer has it begin: with 24 characters that name the types of the elements,
// such as "d" or "2if", filled up with blanks. For types that name nothing the parser never comes to an end.
bool namesElements(std::string_view base64) {
  constexpr std::size_t headerDigits = 32;  // six bits each
  constexpr std::string_view names = "ucwsifdh";
  unsigned int bits = 0;
  int count = 0;
  bool hasName = false;
  bool isOver = false;
  for (std::size_t k = 0; k < headerDigits; ++k) {
    const std::size_t digit = k < base64.size() ? base64Digits.find(base64[k]) : std::string_view::npos;
    if (digit == std::string_view::npos) {
      return false;
    }
    bits = (bits << 6 | static_cast<unsigned int>(digit)) & 0xFFFFU;
    count += 6;
    if (count < 8) {
      continue;
    }
    count -= 8;
    const char c = static_cast<char>(bits >> count & 0xFFU);
    const bool isName = names.find(c) != std::string_view::npos;
    const bool isCount = c >= '1' && c <= '9';
    if (c == ' ' ? false : isOver || !(isName || isCount)) {
      return false;
    }
    hasName = hasName || isName;
    isOver = isOver || (c == ' ' && hasName);
  }
  return hasName;
}

// Whether all that a text holds in base 64 names its elements.
bool hasCleanBase64(std::string_view text) {
  constexpr std::string_view inJson = "$base64$";
  for (std::size_t at = text.find(inJson); at != std::string_view::npos; at = text.find(inJson, at + 1)) {
    if (!namesElements(text.substr(at + inJson.size()))) {
      return false;
    }
  }
  constexpr std::string_view inOthers = "binary";
  for (std::size_t at = text.find(inOthers); at != std::string_view::npos; at = text.find(inOthers, at + 1)) {
    const char before = at == 0 ? ' ' : text[at - 1];
    const bool isType = before == '!' || before == '"' || before == '\'' || before == '=';
    const std::size_t start = std::min(text.find_first_not_of(" \t\r\n|\"'>", at + inOthers.size()), text.size());
    if (isType && !namesElements(text.substr(start))) {
      return false;
    }
  }
  return true;
}

// Whether the text ends with the root's closing tag. One that does cannot end inside another.
bool endsWithRoot(std::string_view text) {
  constexpr std::string_view closing = "</opencv_storage>";
  const std::size_t last = text.find_last_not_of(" \t\r\n");
  if (last == std::string_view::npos || last + 1 < closing.size()) {
    return false;
  }
  return text.substr(last + 1 - closing.size(), closing.size()) == closing;
}

// Deepest nesting of tags.
int tagNesting(std::string_view text) {
  int depth = 0;
  int deepest = 0;
  for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at)) {
    const bool isComment = text.substr(at, 4) == "<!--";
    const std::size_t end = isComment ? text.find("-->", at) : text.find('>', at);
    if (end == std::string_view::npos) {
      break;
    }
    const char first = text[at + 1];
    if (first == '/') {
      depth = std::max(0, depth - 1);
    } else if (first != '?' && first != '!' && text[end - 1] != '/') {
      deepest = std::max(deepest, ++depth);
    }
    at = end;
  }
  return deepest;
}

}  // namespace

bool safeToParse(std::string_view text) {
  // The parsers go by the zero that ends a line's text in memory.
  if (text.find('\0') != std::string_view::npos || !hasCleanBase64(text)) {
    return false;
  }
  const std::size_t start = std::min(text.find_first_not_of(" \t\r\n\xEF\xBB\xBF"), text.size());
  if (text.substr(start, 5) == "<?xml") {
    return endsWithRoot(text) && tagNesting(text) <= deepestNesting;
  }
  const bool isJson = text.substr(start, 1) == "{";  // where a colon may stand on the next line
  if (!isJson && (hasEmptyName(text) || !hasCleanStreams(text))) {
    return false;
  }
  return bracketNesting(text) + blockNesting(text) <= deepestNesting;
}

}  // namespace stereo::core
