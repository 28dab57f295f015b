// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <string_view>

namespace stereo::test {

/// What random documents of every syntax are made of. The same seed makes the same parts.
class DocumentParts {
public:
  explicit DocumentParts(unsigned int seed) : m_random(seed) {}

  /// A number from 0 to `limit` - 1.
  std::size_t below(std::size_t limit) { return m_random() % limit; }
  bool chance(std::size_t oneIn) { return below(oneIn) == 0; }
  int anyInt() { return static_cast<int>(m_random()); }

  static std::string blanks(std::size_t count) { return std::string(count, ' '); }

  /// Text that means something in some syntax.
  std::string_view piece();

  /// Odd text without any of some characters.
  std::string junk(std::string_view without);

  /// The name of an entry.
  std::string name();

  /// A number in one of its spellings.
  std::string number();

  /// Elements of some types, in base 64.
  std::string elements();

private:
  std::minstd_rand m_random;
};

}  // namespace stereo::test
