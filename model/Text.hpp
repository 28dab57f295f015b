// SPDX-License-Identifier: Apache-2.0
// Numbers and sizes as text.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

#include <opencv2/core.hpp>

namespace stereo::model {

/// The text that `printf` would print, at most 511 characters.
// NOLINTNEXTLINE(cert-dcl50-cpp): the compiler checks pattern and values against each other, as for printf
[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char* pattern, ...) {
  std::array<char, 512> line{};
  va_list values;
  va_start(values, pattern);
  // A longer text is cut; an error gives an empty text, since the line is zeroed.
  static_cast<void>(std::vsnprintf(line.data(), line.size(), pattern, values));
  va_end(values);
  return line.data();
}

/// For people: "1856 x 800".
inline std::string sizeText(cv::Size size) { return std::to_string(size.width) + " x " + std::to_string(size.height); }

/// For options: "1856x800".
inline std::string sizeOption(cv::Size size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }

}  // namespace stereo::model
