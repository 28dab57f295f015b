// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/commands/Help.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>
#include <vector>

#include <sys/ioctl.h>
#include <unistd.h>

#include "apps/stereo-camera/output/Console.hpp"

namespace stereo::app {

namespace {

constexpr std::size_t leastWidth = 40;
constexpr std::size_t nameColumn = 26;  // where descriptions begin
constexpr std::size_t indentation = 2;

// Edit distance: how many letters to insert, delete, change or swap with a neighbor.
std::size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        d[i][j] = i + j;
        continue;
      }
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0U : 1U)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[a.size()][b.size()];
}

// "; did you mean 'record'?", or nothing if no name is similar.
std::string suggestion(const std::string& word, const std::vector<std::string>& names) {
  std::string nearest;
  std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
  for (const std::string& name : names) {
    // The beginning of a name counts as similar.
    const std::size_t far = name.rfind(word, 0) == 0 && word.size() > 2 ? 1 : distance(word, name);
    if (far < least) {
      least = far;
      nearest = name;
    }
  }
  return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

std::vector<std::string> commandNames(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* const command : program.get_subcommands({})) {
    names.push_back(command->get_name());
  }
  return names;
}

std::vector<std::string> optionNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* const option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return names;
}

}  // namespace

std::size_t terminalWidth() {
  std::size_t width = 0;
  if (const char* const columns = std::getenv("COLUMNS"); columns != nullptr) {
    std::from_chars(columns, columns + std::strlen(columns), width);
  }
  winsize size{};
  for (const int descriptor : {resultsDescriptor(), STDERR_FILENO}) {
    if (width == 0 && ioctl(descriptor, TIOCGWINSZ, &size) == 0) {
      width = size.ws_col;
    }
  }
  return width == 0 ? 80 : std::max(width, leastWidth);
}

std::string wrapped(const std::string& text, std::size_t width, std::size_t indent) {
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    result += result.empty() ? "" : "\n" + std::string(indent, ' ');
    std::istringstream words(line);
    std::size_t used = 0;
    for (std::string word; words >> word; used += word.size()) {
      if (used > 0 && indent + used + 1 + word.size() > width) {
        result += "\n" + std::string(indent, ' ');
        used = 0;
      } else if (used > 0) {
        result += ' ';
        ++used;
      }
      result += word;
    }
  }
  return result;
}

std::string valueName(const CLI::Option& option) {
  if (option.get_type_size() == 0) {
    return "";
  }
  // CLI11 joins the names of the type and the checks: "TEXT:{sgm,bm}", "FLOAT:FLOAT in [0 - 1000]".
  const std::string names = option.get_type_name();
  const std::size_t choices = names.find('{');
  if (choices != std::string::npos) {
    return names.substr(choices);
  }
  const std::string name = names.substr(0, names.find(':'));
  return name == "FLOAT" || name == "INT" || name == "UINT" ? "N" : name;
}

std::string HelpFormatter::row(const std::string& name, const std::string& text) const {
  std::string result = std::string(indentation, ' ') + name;
  if (text.empty()) {
    return result + "\n";
  }
  // In two columns if the terminal is wide enough, otherwise one below the other.
  const std::size_t column = m_width >= 2 * nameColumn ? nameColumn : 2 * indentation;
  if (result.size() + 2 > column) {
    result += "\n" + std::string(column, ' ');
  } else {
    result.resize(column, ' ');
  }
  return result + wrapped(text, m_width, column) + "\n";
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool isPositional) const {
  const std::string value = isPositional ? "" : valueName(*option);
  std::string text = option->get_description();
  if (option->get_required() && !isPositional) {
    text += " (required)";
  } else if (!option->get_default_str().empty()) {
    text += " (default " + option->get_default_str() + ")";
  }
  return row(option->get_name(isPositional, !isPositional) + (value.empty() ? "" : " " + value), text);
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
  return row(command->get_name(), command->get_description());
}

std::string HelpFormatter::make_description(const CLI::App* command) const {
  return wrapped(command->get_description(), m_width, 0) + "\n";
}

std::string HelpFormatter::make_footer(const CLI::App* command) const {
  const std::string text = command->get_footer();
  return text.empty() ? "" : wrapped(text, m_width, 0) + "\n";
}

std::string usageMessage(const CLI::App& program, int argc, const char* const* argv, const CLI::ParseError& error) {
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  const auto isName = [](const std::string& word) { return word.empty() || word.front() != '-'; };
  const auto chosen = std::find_if(words.begin(), words.end(), isName);
  const std::string name = chosen == words.end() ? "" : *chosen;
  const std::vector<std::string> commands = commandNames(program);
  if (name.empty()) {
    return std::string(error.what()) + " (stereo-camera --help)";
  }
  if (std::find(commands.begin(), commands.end(), name) == commands.end()) {
    return "there is no command '" + name + "'" + suggestion(name, commands) + " (stereo-camera --help)";
  }
  const std::vector<std::string> options = optionNames(*program.get_subcommand(name));
  const std::string where = " (stereo-camera " + name + " --help)";
  for (auto word = chosen + 1; word != words.end(); ++word) {
    const std::string option = word->substr(0, word->find('='));
    if (option.rfind("--", 0) == 0 && option != "--" &&
        std::find(options.begin(), options.end(), option) == options.end()) {
      std::string message = name;
      return message.append(" has no option '").append(option).append("'").append(suggestion(option, options)) + where;
    }
  }
  return error.what() + where;
}

}  // namespace stereo::app
