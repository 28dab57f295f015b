// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/StereoCameraCommon/DocumentParts.hpp"

#include <array>
#include <cstdint>

namespace stereo::test {

namespace {

// Parts of documents, in places where they mean something and where they don't.
// clang-format off
constexpr std::array<std::string_view, 51> pieces{
    ": ", ", :", ",:", "{:", "{", "}", "[", "]", "#", " # ", "//", "/*", "*/", "<", ">", "<!--", "-->", "</a>",
    "<a>", "/>", "\"", "'", "\\", "\\\"", "\\x41", "&lt;", "&#33;", "&", ";", "- ", "---", "...", "!", "!!",
    "!!binary", "binary", "type_id", "$base64$", "|", "%YAML", "=", "\xC3\xA4", "  ", "opencv-matrix",
    "</opencv_storage>", ",", ":", "-", "!!str ", "\t", "?"};
// clang-format on
constexpr std::array<std::string_view, 14> numbers{"0",    "-1",   "+7",   "2147483648", "1.5",  "-.5",     "1.",
                                                   "1e-3", "0x1F", ".Inf", "-.inf",      ".NaN", "1.e+300", "-0."};

std::string base64(const std::string& bytes) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t k = 0; k < bytes.size(); k += 3) {
    std::uint32_t bits = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      bits = bits << 8 | (k + j < bytes.size() ? static_cast<unsigned char>(bytes[k + j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      text += k + j > bytes.size() ? '=' : digits[bits >> (18 - 6 * j) & 63U];
    }
  }
  return text;
}

}  // namespace

std::string_view DocumentParts::piece() { return pieces[below(pieces.size())]; }

std::string DocumentParts::junk(std::string_view without) {
  std::string text;
  for (std::size_t k = below(7); k > 0; --k) {
    const std::string next = chance(3) ? name() : std::string(piece());
    if (next.find_first_of(without) == std::string::npos) {
      text += next;
    }
  }
  return text;
}

std::string DocumentParts::name() {
  constexpr std::string_view first = "ABCxyz";
  constexpr std::string_view others = "abcXYZ019_-";
  std::string text(1, first[below(first.size())]);
  for (std::size_t k = below(9); k > 0; --k) {
    text += others[below(others.size())];
  }
  return text;
}

std::string DocumentParts::number() { return std::string(numbers[below(numbers.size())]); }

std::string DocumentParts::elements() {
  constexpr std::array<std::string_view, 9> types{"d", "f", "u", "2if", "3d", "ui", "h", "cws", "d d"};
  std::string bytes(types[below(types.size())]);
  bytes.resize(24, ' ');
  for (std::size_t k = below(60); k > 0; --k) {
    bytes += static_cast<char>(anyInt());
  }
  return base64(bytes);
}

}  // namespace stereo::test
