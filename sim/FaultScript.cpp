// SPDX-License-Identifier: Apache-2.0
#include "sim/FaultScript.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace stereo::sim {

namespace {

using Kind = Fault::Kind;

/// What follows the frames of a fault.
enum class Value { none, time, timeOrEver, size };

struct Word {
  std::string_view text;
  Kind kind;
  Value value;
};

constexpr std::array<Word, 12> faultWords{{{"drop", Kind::drop, Value::none},
                                           {"delay", Kind::delay, Value::time},
                                           {"duplicate", Kind::duplicate, Value::none},
                                           {"tear", Kind::tear, Value::none},
                                           {"size", Kind::size, Value::size},
                                           {"grey", Kind::gray, Value::none},
                                           {"16bit", Kind::deep, Value::none},
                                           {"empty", Kind::empty, Value::none},
                                           {"untouched", Kind::untouched, Value::none},
                                           {"black", Kind::black, Value::none},
                                           {"stall", Kind::stall, Value::time},
                                           {"unplug", Kind::unplug, Value::timeOrEver}}};

constexpr std::size_t maxDigits = 18;  // fits 64 bits
constexpr std::uint64_t longestWait = 3'600'000;
constexpr std::uint64_t largestSide = 8192;

const Word& wordFor(Kind kind) {
  return *std::find_if(faultWords.begin(), faultWords.end(), [kind](const Word& word) { return word.kind == kind; });
}

std::optional<std::uint64_t> numberFrom(std::string_view text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || text.size() > maxDigits || error != std::errc() || stopped != end) {
    return std::nullopt;
  }
  return number;
}

std::optional<std::uint64_t> numberFrom(std::string_view text, std::uint64_t lowest, std::uint64_t highest) {
  const auto number = numberFrom(text);
  return number && *number >= lowest && *number <= highest ? number : std::nullopt;
}

std::vector<std::string> wordsOf(const std::string& line) {
  std::istringstream stream(line.substr(0, line.find('#')));
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

[[noreturn]] void refuse(const std::string& what) { throw std::invalid_argument(what); }

void parseFrames(const std::string& text, Fault& fault) {
  const std::string_view all(text);
  const std::size_t dash = all.find('-');
  const auto first = numberFrom(all.substr(0, dash));
  auto last = first;
  if (dash != std::string_view::npos) {
    const std::string_view rest = all.substr(dash + 1);
    last = rest.empty() ? std::optional(Fault::noEnd) : numberFrom(rest);
  }
  if (!first || !last) {
    refuse("'" + text + "' names no frames: use N, N-M or N-");
  }
  if (*last < *first) {
    refuse("the frames '" + text + "' end before they begin");
  }
  fault.first = *first;
  fault.last = *last;
}

void parseTime(const std::string& text, bool orEver, Fault& fault) {
  if (orEver && text == "ever") {
    fault.time = Fault::forever;
    return;
  }
  const std::string_view all(text);
  const auto number = all.ends_with("ms") ? numberFrom(all.substr(0, all.size() - 2), 1, longestWait) : std::nullopt;
  if (!number) {
    refuse("'" + text + "' is not a time from 1ms to 3600000ms" + (orEver ? " or 'ever'" : ""));
  }
  fault.time = std::chrono::milliseconds(*number);
}

void parseSize(const std::string& text, Fault& fault) {
  const std::string_view all(text);
  const std::size_t cross = std::min(all.find('x'), all.size());
  const auto width = numberFrom(all.substr(0, cross), 1, largestSide);
  const auto height = numberFrom(all.substr(std::min(cross + 1, all.size())), 1, largestSide);
  if (!width || !height) {
    refuse("'" + text + "' is not a size from 1x1 to 8192x8192");
  }
  fault.size = {static_cast<int>(*width), static_cast<int>(*height)};
}

Fault parseFault(const std::vector<std::string>& words) {
  const auto* const word =
      std::find_if(faultWords.begin(), faultWords.end(), [&](const Word& each) { return each.text == words[0]; });
  if (word == faultWords.end()) {
    refuse("'" + words[0] + "' is not a fault");
  }
  const std::size_t wanted = word->value == Value::none ? 2 : 3;
  if (words.size() != wanted) {
    refuse("'" + words[0] + "' takes " +
           (word->value == Value::none   ? "frames and nothing else"
            : word->value == Value::size ? "frames and a size"
                                         : "frames and a time"));
  }
  Fault fault;
  fault.kind = word->kind;
  parseFrames(words[1], fault);
  if (fault.kind == Kind::unplug && fault.last != fault.first) {
    refuse("'unplug' takes the one frame at which it begins");
  }
  if (word->value == Value::size) {
    parseSize(words[2], fault);
  } else if (word->value != Value::none) {
    parseTime(words[2], word->value == Value::timeOrEver, fault);
  }
  return fault;
}

/// Random numbers that are the same with every standard library, unlike its distributions.
class Dice {
public:
  explicit Dice(std::uint64_t seed) : m_engine(seed) {}

  /// From 0 to `bound` - 1.
  std::uint64_t below(std::uint64_t bound) { return m_engine() % bound; }
  bool oneIn(std::uint64_t chances) { return below(chances) == 0; }

private:
  std::mt19937_64 m_engine;
};

cv::Size randomSize(Dice& dice, const cv::Size& usual) {
  const auto upTo = [&](int side) { return 1 + static_cast<int>(dice.below(static_cast<std::uint64_t>(side))); };
  switch (dice.below(5)) {
    case 0:
      return {usual.width / 2 + 1, usual.height / 2 + 1};
    case 1:  // odd
      return {usual.width | 1, usual.height};
    case 2:
      return {1, usual.height};
    case 3:
      return {2 * usual.width, 2 * usual.height};
    default:
      return {upTo(2 * usual.width), upTo(2 * usual.height)};
  }
}

}  // namespace

FaultScript parseFaults(const std::string& text) {
  FaultScript script;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    const std::vector<std::string> words = wordsOf(line);
    if (words.empty()) {
      continue;
    }
    try {
      script.push_back(parseFault(words));
    } catch (const std::invalid_argument& error) {
      throw std::invalid_argument("line " + std::to_string(number) + ": " + error.what());
    }
  }
  return script;
}

std::string printFaults(const FaultScript& script) {
  std::ostringstream text;
  for (const Fault& fault : script) {
    const Word& word = wordFor(fault.kind);
    text << word.text << ' ' << fault.first;
    if (fault.last == Fault::noEnd) {
      text << '-';
    } else if (fault.last != fault.first) {
      text << '-' << fault.last;
    }
    if (word.value == Value::size) {
      text << ' ' << fault.size.width << 'x' << fault.size.height;
    } else if (word.value == Value::timeOrEver && fault.time == Fault::forever) {
      text << " ever";
    } else if (word.value != Value::none) {
      text << ' ' << fault.time.count() << "ms";
    }
    text << '\n';
  }
  return text.str();
}

FaultScript randomFaults(std::uint64_t seed, const RandomFaults& options) {
  const cv::Size& usual = options.frameSize;
  const int largest = static_cast<int>(largestSide) / 2;
  if (options.frames < 1 || options.faults < 0 || options.longest.count() < 1 ||
      options.longest.count() > static_cast<std::int64_t>(longestWait) || usual.empty() || usual.width > largest ||
      usual.height > largest) {
    throw std::invalid_argument(
        "random faults need at least 1 frame, a time from 1 to 3600000 ms and a size of at most " +
        std::to_string(largest) + " pixels per side");
  }
  Dice dice(seed);
  FaultScript script;
  while (script.size() < static_cast<std::size_t>(options.faults)) {
    const Word& word = faultWords[dice.below(faultWords.size())];
    if (!options.otherTypes && (word.kind == Kind::gray || word.kind == Kind::deep)) {
      continue;
    }
    Fault fault;
    fault.kind = word.kind;
    fault.first = dice.below(options.frames);
    fault.last = fault.first;
    const std::uint64_t left = options.frames - 1 - fault.first;
    if (word.kind != Kind::unplug && dice.oneIn(2)) {
      fault.last += dice.below(std::min<std::uint64_t>(left, 8) + 1);
    }
    if (word.value == Value::size) {
      fault.size = randomSize(dice, usual);
    } else if (word.value != Value::none) {
      fault.time = std::chrono::milliseconds(1 + dice.below(static_cast<std::uint64_t>(options.longest.count())));
    }
    if (options.gone && word.kind == Kind::unplug && dice.oneIn(4)) {
      fault.time = Fault::forever;
    }
    script.push_back(fault);
  }
  return script;
}

}  // namespace stereo::sim
