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
  const std::size_t start = std::min(text.find_first_not_of(" \t\r\n\xEF\xBB\xBF"), text.size());
  if (text.substr(start, 5) == "<?xml") {
    return endsWithRoot(text) && tagNesting(text) <= deepestNesting;
  }
  const bool isJson = text.substr(start, 1) == "{";  // where a colon may stand on the next line
  if (!isJson && hasEmptyName(text)) {
    return false;
  }
  return bracketNesting(text) + blockNesting(text) <= deepestNesting;
}

}  // namespace stereo::core
