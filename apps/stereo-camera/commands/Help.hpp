// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace stereo::app {

/// Help as wide as the terminal: names in a column, what they are for beside them, broken between words.
class HelpFormatter : public CLI::Formatter {
public:
  explicit HelpFormatter(std::size_t width) : m_width(width) {}

  std::string make_option(const CLI::Option* option, bool isPositional) const override;
  std::string make_subcommand(const CLI::App* command) const override;
  std::string make_description(const CLI::App* command) const override;
  std::string make_footer(const CLI::App* command) const override;

private:
  std::string row(const std::string& name, const std::string& text) const;

  const std::size_t m_width;  // columns
};

/// Columns of the terminal: as COLUMNS says, or the terminal on standard output or error; 80 where there is none.
std::size_t terminalWidth();

/// Broken between words so that no line is longer than `width`, as far as words allow. Lines after the first are
/// indented.
std::string wrapped(const std::string& text, std::size_t width, std::size_t indent);

/// What a value of the option is called, "FILE"; or which there are, "{sgm,bm}". Empty for a flag.
std::string valueName(const CLI::Option& option);

/// A line about what the command line got wrong, with the name that was probably meant.
std::string usageMessage(const CLI::App& program, int argc, const char* const* argv, const CLI::ParseError& error);

}  // namespace stereo::app
