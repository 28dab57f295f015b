// SPDX-License-Identifier: Apache-2.0
// Command completion: prints shell completion made from the parser's options.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Help.hpp"
#include "apps/stereo-camera/output/Console.hpp"

namespace stereo::app {

namespace {

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
  return text;
}

// Except hidden ones and positional arguments.
std::vector<const CLI::Option*> optionsOf(const CLI::App& command) {
  std::vector<const CLI::Option*> options = command.get_options();
  options.erase(
      std::remove_if(options.begin(), options.end(),
                     [](const CLI::Option* each) { return each->get_group().empty() || each->get_lnames().empty(); }),
      options.end());
  return options;
}

std::vector<std::string> namesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_lnames()) {
    names.push_back("--" + name);
  }
  for (const std::string& name : option.get_snames()) {
    names.push_back("-" + name);
  }
  return names;
}

std::string joined(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : between) + word;
  }
  return text;
}

enum class Value { none, choice, device, file, other };

Value valueOf(const CLI::Option& option) {
  const std::string name = valueName(option);
  return name.empty()                   ? Value::none
         : name.front() == '{'          ? Value::choice
         : name == "DEVICE"             ? Value::device
         : name == "N" || name == "WxH" ? Value::other
                                        : Value::file;
}

// "{sgm,bm}" to "sgm bm".
std::string choicesOf(const CLI::Option& option) {
  const std::string name = valueName(option);
  return replaced(name.substr(1, name.size() - 2), ",", " ");
}

std::string bashCase(const CLI::App& command) {
  std::vector<std::string> names;
  std::string values;
  for (const CLI::Option* const option : optionsOf(command)) {
    const std::vector<std::string> own = namesOf(*option);
    names.insert(names.end(), own.begin(), own.end());
    const std::string head = "        " + joined(own, " | ") + ") ";
    switch (valueOf(*option)) {
      case Value::choice:
        values += head + "words='" + choicesOf(*option) + "' ;;\n";
        break;
      case Value::device:
        values += head + "words=$(compgen -G '/dev/video*'; compgen -G '/dev/v4l/by-id/*') ;;\n";
        break;
      case Value::file:
        values += head + "files=yes ;;\n";
        break;
      case Value::other:
        values += head + "words='' ;;\n";
        break;
      case Value::none:
        break;
    }
  }
  return "    " + command.get_name() + ")\n      words='" + joined(names, " ") +
         "'\n      case ${COMP_WORDS[COMP_CWORD - 1]} in\n" + values +
         "        *) [[ $current == -* ]] || files=yes ;;\n      esac\n      ;;\n";
}

std::string forBash(const CLI::App& program) {
  std::vector<std::string> commands;
  std::string cases;
  for (const CLI::App* const command : program.get_subcommands({})) {
    commands.push_back(command->get_name());
    cases += bashCase(*command);
  }
  return "# bash completion for stereo-camera; made by: stereo-camera completion bash\n"
         "_stereo_camera() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} words='' files=''\n"
         "  COMPREPLY=()\n"
         "  if [[ $COMP_CWORD -eq 1 ]]; then\n"
         "    COMPREPLY=($(compgen -W '" +
         joined(commands, " ") +
         " --help --version' -- \"$current\"))\n"
         "    return\n"
         "  fi\n"
         "  case ${COMP_WORDS[1]} in\n" +
         cases +
         "  esac\n"
         "  if [[ -n $files ]]; then\n"
         "    compopt -o filenames 2>/dev/null\n"
         "    local IFS=$'\\n'\n"
         "    COMPREPLY=($(compgen -f -- \"$current\"))\n"
         "  else\n"
         "    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
         "  fi\n"
         "}\n"
         "complete -F _stereo_camera stereo-camera\n";
}

std::string zshQuoted(const std::string& text) { return "'" + replaced(text, "'", "'\\''") + "'"; }

// Text escaped for the brackets and colons of zsh's option lists.
std::string zshText(std::string text) {
  for (const char* const special : {"\\", "[", "]", ":"}) {
    text = replaced(std::move(text), special, std::string("\\") + special);
  }
  return text;
}

std::string zshOption(const CLI::Option& option) {
  std::string value;
  switch (valueOf(option)) {
    case Value::choice:
      value = ":value:(" + choicesOf(option) + ")";
      break;
    case Value::device:
      value = ":device:(/dev/video*(N) /dev/v4l/by-id/*(N))";
      break;
    case Value::file:
      value = ":file:_files";
      break;
    case Value::other:
      value = ":" + zshText(valueName(option)) + ":";
      break;
    case Value::none:
      break;
  }
  std::string text;
  for (const std::string& name : namesOf(option)) {
    std::string entry = name;
    entry.append("[").append(zshText(option.get_description())).append("]").append(value);
    text.append("        ").append(zshQuoted(entry)).append("\n");
  }
  return text;
}

std::string forZsh(const CLI::App& program) {
  std::string commands;
  std::string cases;
  for (const CLI::App* const command : program.get_subcommands({})) {
    commands += "    " + zshQuoted(command->get_name() + ":" + zshText(command->get_description())) + "\n";
    cases += "    " + command->get_name() + ")\n      options=(\n";
    for (const CLI::Option* const option : optionsOf(*command)) {
      cases += zshOption(*option);
    }
    cases += "      )\n      ;;\n";
  }
  return "#compdef stereo-camera\n"
         "# zsh completion for stereo-camera; made by: stereo-camera completion zsh\n"
         "_stereo_camera() {\n"
         "  local -a commands options\n"
         "  commands=(\n" +
         commands +
         "  )\n"
         "  if (( CURRENT == 2 )); then\n"
         "    _describe command commands\n"
         "    return\n"
         "  fi\n"
         "  case $words[2] in\n" +
         cases +
         "  esac\n"
         "  shift words\n"
         "  (( CURRENT-- ))\n"
         "  _arguments $options '*:file:_files'\n"
         "}\n"
         "_stereo_camera \"$@\"\n";
}

}  // namespace

Action addCompletion(CLI::App& program) {
  auto shell = std::make_shared<std::string>();
  CLI::App* const command = program.add_subcommand("completion", "print shell completion code");
  command->add_option("shell", *shell, "bash or zsh")->required()->check(CLI::IsMember({"bash", "zsh"}));
  return [&program, shell] { results() << (*shell == "bash" ? forBash(program) : forZsh(program)); };
}

}  // namespace stereo::app
