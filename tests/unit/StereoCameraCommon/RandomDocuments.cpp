// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/StereoCameraCommon/RandomDocuments.hpp"

#include <array>
#include <string_view>

#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>

#include "tests/unit/StereoCameraCommon/DocumentParts.hpp"

namespace stereo::test {

namespace {

class Writer : DocumentParts {
public:
  explicit Writer(unsigned int seed) : DocumentParts(seed), m_lineEnd(chance(5) ? "\r\n" : "\n") {}

  std::string yaml() {
    m_text = std::string(chance(8) ? "%YAML 1.2" : "%YAML:1.0") + m_lineEnd;
    const unsigned int streams = chance(4) ? 3 : 1;
    for (unsigned int k = 0; k < streams; ++k) {
      yamlComments();
      if (k > 0 && chance(3)) {
        m_text += "%YAML:1.0" + m_lineEnd;
      }
      m_text += std::string("---") + (chance(5) ? " # " + junk("\n") : std::string()) + m_lineEnd;
      yamlComments();
      const std::size_t indent = chance(4) ? below(4) : 0;
      switch (below(8)) {
        case 0:
          m_text += blanks(indent);
          yamlFlow(1, 0, true);
          m_text += m_lineEnd;
          break;
        case 1:
          yamlBlock(indent, 0, true);
          break;
        case 2:
          m_text += "!!map" + std::string(chance(2) ? " # tag" : "") + m_lineEnd;
          yamlBlock(indent, 0, false);
          break;
        default:
          yamlBlock(indent, 0, false);
      }
      if (k + 1 < streams || chance(4)) {
        m_text += "..." + m_lineEnd;
      }
    }
    return finish();
  }

  std::string xml() {
    m_text = std::string("<?xml version=\"1.0\"") + (chance(4) ? " encoding='UTF-8' " : "") + "?>" + gap();
    xmlSpace();
    m_text += std::string("<opencv_storage") + (chance(5) ? " note=\"" + junk("\"\n") + "\"" : "") + ">";
    for (unsigned int k = below(6); k > 0; --k) {
      xmlElement(name(), 0);
    }
    xmlSpace();
    m_text += std::string("</opencv_storage") + (chance(3) ? gap() : "") + ">";
    m_text += chance(4) ? "" : m_lineEnd;
    if (chance(3)) {
      xmlSpace();
    }
    return finish();
  }

  std::string json() {
    m_text = "{";
    jsonMembers(0);
    m_text += chance(3) ? m_lineEnd : "";
    return finish();
  }

  // As the storage layer itself writes it.
  std::string written(int format) {
    cv::FileStorage storage(
        "." + std::string(format == 0   ? "yml"
                          : format == 1 ? "xml"
                                        : "json"),
        cv::FileStorage::WRITE | cv::FileStorage::MEMORY | (chance(2) ? cv::FileStorage::BASE64 : 0));
    for (unsigned int k = 1 + below(6); k > 0; --k) {
      const std::string key = name() + std::to_string(k);
      switch (below(5)) {
        case 0:
          storage << key << anyInt();
          break;
        case 1:
          storage << key << "x" + junk(format == 1 ? "\n\r\t" : "\n");
          break;
        case 2:
          storage << key << "[" << 1.25 << "two" << 3 << "{:"
                  << "four"
                  << "5"
                  << "}"
                  << "]";
          break;
        default: {
          cv::Mat matrix(1 + static_cast<int>(below(5)), 1 + static_cast<int>(below(40)),
                         CV_MAKETYPE(static_cast<int>(below(7)), 1 + static_cast<int>(below(3))));
          matrix.setTo(cv::Scalar::all(below(100)));
          storage << key << matrix;
        }
      }
    }
    return storage.releaseAndGetString();
  }

private:
  std::string finish() {
    if (chance(5) && m_text.ends_with('\n')) {
      m_text.pop_back();
    }
    return m_text;
  }

  // --- YAML ---

  void yamlComments() {
    for (std::size_t k = chance(3) ? below(3) : 0; k > 0; --k) {
      m_text += blanks(below(9)) + (chance(3) ? "" : "#" + junk("\n")) + m_lineEnd;
    }
  }

  std::string yamlTag() {
    constexpr std::array<std::string_view, 5> tags{"!!note", "!x", "!<tag:yaml.org,2002:x>", "!!binaries", "!^t"};
    return chance(8) ? std::string(tags[below(tags.size())]) + " " : "";
  }

  void yamlScalar(bool isInFlow) {
    switch (below(5)) {
      case 0:
        m_text += number();
        break;
      case 1:
        m_text += "'" + junk("'\n\t") + (chance(3) ? "''" : "") + "'";
        break;
      case 2:
        m_text +=
            "\"" + junk("\"\\\n\t") + (chance(2) ? "\\\" \\\\ \\n \\t\\q" : "") + (chance(4) ? "\\x41;" : "") + "\"";
        break;
      case 3:
        m_text += "!str x" + junk(isInFlow ? ",]}\n\t" : "\n\t");
        break;
      default:
        m_text += "x" + junk(isInFlow ? ",]}\n\t" : ":\n\t");
    }
  }

  void yamlFlowGap(std::size_t indent) {
    switch (below(5)) {
      case 0:
        m_text += (chance(2) ? " #" + junk("\n") : "") + m_lineEnd;
        yamlComments();
        m_text += blanks(indent + below(5));
        break;
      case 1:
        break;
      default:
        m_text += blanks(below(3));
    }
  }

  void yamlFlow(std::size_t indent, int depth, bool isMap) {
    m_text += isMap ? "{" : "[";
    for (std::size_t k = 0, count = below(5); k < count; ++k) {
      m_text += k > 0 ? "," : "";
      yamlFlowGap(indent);
      if (isMap) {
        m_text += (chance(3) ? name() + junk(":\n\t") : name()) + blanks(below(2)) + ":";
        yamlFlowGap(indent);
      }
      m_text += yamlTag();
      if (depth < 4 && chance(4)) {
        yamlFlow(indent, depth + 1, chance(2));
      } else {
        yamlScalar(true);
      }
      // An unquoted text ends at the comma.
      m_text += chance(3) && (m_text.back() == '"' || m_text.back() == '}') ? " " : "";
    }
    if (m_text.back() == '[' || m_text.back() == '{' || m_text.back() == '"' || m_text.back() == ']') {
      yamlFlowGap(indent);
    }
    m_text += isMap ? "}" : "]";
  }

  void yamlBlock(std::size_t indent, int depth, bool isSequence) {
    for (std::size_t k = 1 + below(4); k > 0; --k) {
      yamlComments();
      m_text += blanks(indent);
      m_text += isSequence ? "- " : (chance(3) ? name() + junk(":\n\t") : name()) + blanks(below(2)) + ":";
      yamlValue(indent, depth);
    }
  }

  void yamlValue(std::size_t indent, int depth) {
    const std::size_t inner = indent + 1 + below(4);
    const std::string behind = chance(4) ? " # " + junk("\n") : "";
    switch (below(depth < 4 ? 8 : 5)) {
      case 0:
        m_text += " " + yamlTag();
        yamlFlow(indent + 2, depth, chance(2));
        m_text += behind + m_lineEnd;
        break;
      case 1: {
        m_text += " !!binary |" + m_lineEnd;
        const std::string digits = elements();
        for (std::size_t from = 0; from < digits.size(); from += 40) {
          m_text += blanks(inner) + digits.substr(from, 40) + m_lineEnd;
        }
        break;
      }
      case 2:
        m_text += m_lineEnd + blanks(inner);
        yamlScalar(false);
        m_text += m_lineEnd;
        break;
      case 3:
      case 4:
        m_text += " " + yamlTag();
        yamlScalar(false);
        m_text += m_lineEnd;
        break;
      default:
        m_text += (chance(3) ? " !!opencv-matrix" : "") + m_lineEnd;
        yamlBlock(inner, depth + 1, chance(3));
    }
  }

  // --- XML ---

  std::string gap() { return chance(3) ? m_lineEnd + blanks(below(4)) : chance(4) ? " \t" : " "; }

  void xmlSpace() {
    for (std::size_t k = below(3); k > 0; --k) {
      if (chance(3)) {
        std::string comment = junk("\t");
        if (comment.find("-->") == std::string::npos) {
          m_text += "<!--" + comment + (chance(3) ? m_lineEnd : "") + "-->";
        }
      } else {
        m_text += gap();
      }
    }
  }

  std::string xmlText() {
    if (chance(3)) {
      return number();
    }
    const bool isQuoted = chance(2);
    std::string text = "x" + junk(isQuoted ? "\"'<>&\t" : "\"'<>& \t");
    text += chance(3) ? "&lt;&#65;&#x42;&quot;&odd;" : "";
    return isQuoted ? "\"" + text + "\"" : text;
  }

  void xmlElement(const std::string& tag, int depth) {
    xmlSpace();
    std::string attributes;
    if (chance(4)) {
      attributes += gap() + std::string("note") + (chance(3) ? " = " : "=") +
                    (chance(2) ? "'" + junk("'\n") + "'" : "\"" + junk("\"\n") + "\"");
    }
    const std::size_t kind = below(depth < 4 ? 6 : 4);
    attributes += kind == 0 ? " type_id=\"binary\"" : chance(5) ? " type_id=\"opencv-matrix\"" : "";
    m_text += "<" + tag + attributes + (chance(6) ? gap() : "") + ">";
    if (kind == 0) {
      const std::string digits = elements();
      for (std::size_t from = 0; from < digits.size(); from += 40) {
        m_text += m_lineEnd + blanks(below(3)) + digits.substr(from, 40);
      }
      m_text += m_lineEnd;
    } else if (kind < 4) {
      xmlSpace();
      for (std::size_t k = below(4); k > 0; --k) {
        m_text += xmlText() + gap();
      }
      xmlSpace();
    } else {
      const bool isSequence = chance(2);
      for (std::size_t k = below(4); k > 0; --k) {
        xmlElement(isSequence ? "_" : name(), depth + 1);
      }
      xmlSpace();
    }
    m_text += "</" + tag + (chance(6) ? gap() : "") + ">";
  }

  // --- JSON ---

  void jsonSpace() {
    for (std::size_t k = below(3); k > 0; --k) {
      switch (below(5)) {
        case 0:
          m_text += "//" + junk("\n") + m_lineEnd;
          break;
        case 1: {
          const std::string comment = junk("*/");
          m_text += "/*" + comment + (chance(3) ? m_lineEnd : "") + "*/";
          break;
        }
        case 2:
          m_text += m_lineEnd;
          break;
        default:
          m_text += gap();
      }
    }
  }

  void jsonMembers(int depth) {
    for (std::size_t k = 0, count = below(5); k < count; ++k) {
      m_text += k > 0 ? "," : "";
      jsonSpace();
      m_text += "\"" + name() + (chance(3) ? junk("\"\n\t") : "") + "\"";
      jsonSpace();
      m_text += ":";
      jsonSpace();
      jsonValue(depth + 1);
      jsonSpace();
    }
    m_text += m_text.back() != '{' && chance(9) ? "," : "";
    jsonSpace();
    m_text += "}";
  }

  void jsonValue(int depth) {
    switch (below(depth < 5 ? 7 : 5)) {
      case 0:
        m_text += "\"$base64$" + elements() + "\"";
        break;
      case 1:
        m_text += chance(2) ? "true" : "false";
        break;
      case 2:
        m_text += number();
        break;
      case 3:
      case 4:
        m_text += "\"x" + junk("\"\\\n") + (chance(3) ? R"(\" \\ \n\t\b\f\r\')" : "") + "\"";
        break;
      case 5:
        m_text += "[";
        for (std::size_t k = 0, count = below(4); k < count; ++k) {
          m_text += k > 0 ? "," : "";
          jsonSpace();
          jsonValue(depth + 1);
          jsonSpace();
        }
        m_text += "]";
        break;
      default:
        m_text += "{";
        jsonMembers(depth);
    }
  }

  std::string m_lineEnd;
  std::string m_text;
};

}  // namespace

std::string randomDocument(Syntax syntax, unsigned int seed) {
  Writer writer(seed + 1);
  if (seed % 8 == 0) {
    return writer.written(static_cast<int>(syntax));
  }
  return syntax == Syntax::yaml ? writer.yaml() : syntax == Syntax::xml ? writer.xml() : writer.json();
}

std::string changedDocument(const std::string& document, unsigned int seed) {
  DocumentParts parts(seed + 1);
  std::string text = document;
  for (std::size_t changes = 1 + parts.below(3); changes > 0 && !text.empty(); --changes) {
    const std::size_t at = parts.below(text.size());
    switch (parts.below(7)) {
      case 0:
        text.erase(at, 1 + parts.below(6));
        break;
      case 1:
        text.resize(at);
        break;
      case 2:
        text[at] = static_cast<char>(1 + parts.below(255));
        break;
      case 3:
        text.insert(at, text.substr(parts.below(text.size()), parts.below(40)));
        break;
      case 4:
        text.insert(at, "\n");
        break;
      default:
        text.insert(at, parts.piece());
    }
  }
  return text;
}

}  // namespace stereo::test
