// SPDX-License-Identifier: Apache-2.0
// Help texts, and messages for wrong command lines.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace stereo::app {

/// Help as wide as the terminal: names in one column, wrapped descriptions beside them.
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

/// Columns of the terminal: COLUMNS, or those of the terminal on standard output or error; 80 without one.
std::size_t terminalWidth();

/// Wraps between words to lines of at most `width` columns, longer words excepted. Lines after the first are indented.
std::string wrapped(const std::string& text, std::size_t width, std::size_t indent);

/// Name of the option's value, "FILE", or its choices, "{sgm,bm}". Empty for a flag.
std::string valueName(const CLI::Option& option);

/// One line that says what is wrong with the command line, with the name that was probably meant.
std::string usageMessage(const CLI::App& program, int argc, const char* const* argv, const CLI::ParseError& error);

}  // namespace stereo::app
