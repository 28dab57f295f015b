// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace stereo::model {

/// What `printf` would print of the values, up to 511 characters.
// NOLINTNEXTLINE(cert-dcl50-cpp): the compiler checks pattern and values against each other, as it does for printf
[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char* pattern, ...) {
  std::array<char, 512> line{};
  va_list values;
  va_start(values, pattern);
  // Cut where it is longer; empty where it cannot be formatted, since the line is zeroed.
  static_cast<void>(std::vsnprintf(line.data(), line.size(), pattern, values));
  va_end(values);
  return line.data();
}

}  // namespace stereo::model
