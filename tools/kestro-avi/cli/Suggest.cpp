#include "cli/Suggest.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <regex>
#include <utility>

#include "cli/DidYouMean.h"

namespace kestro::tool {

CLI::Validator OneOf(std::vector<std::string> const& choices) {
  auto const check = [choices](std::string const& value) {
    if (std::find(choices.begin(), choices.end(), value) != choices.end()) return std::string();
    std::string const meant = DidYouMean(value, choices);
    return "unknown value '" + value + "'" +
           (meant.empty() ? "; choose from " + CLI::detail::join(choices, ", ") : meant);
  };
  // The manual page and the completions use the description.
  return {check, "{" + CLI::detail::join(choices, ",") + "}"};
}

CLI::Validator NotEmpty() {
  return {[](std::string const& value) { return value.empty() ? "the value is empty" : ""; }, ""};
}

CLI::Validator Seekable() {
  return {[](std::string const& value) {
            return value == "-"
                       ? "standard output is not seekable, as an AVI file must be (./- is a "
                         "file of that name)"
                       : "";
          },
          ""};
}

// What takes the place of options that other programs or commands have.
static std::string Elsewhere(CLI::App const& app, std::string const& option) {
  auto const is = [&option](std::initializer_list<char const*> names) {
    return std::find(names.begin(), names.end(), option) != names.end();
  };
  bool const verb = app.get_parent() != nullptr;
  if (!verb && is({"-i", "-o", "-y", "--force", "--input", "--out", "--output"}))
    return "; options follow a command, such as record";
  if (verb && is({"-i", "--input"})) return "; inputs are named without an option";
  if (is({"-y", "--overwrite"}) && app.get_option_no_throw("--force") != nullptr)
    return "; use --force";
  bool const prints = verb && app.get_option_no_throw("--output") == nullptr;
  return prints && is({"-o", "--out", "--output"}) ? "; the command writes to standard output" : "";
}

// The names of the options, or of the commands that the help shows.
static std::vector<std::string> Names(CLI::App const& app, bool options) {
  std::vector<std::string> names;
  if (options)
    for (CLI::Option const* option : app.get_options())
      for (std::string const& name : option->get_lnames()) names.push_back("--" + name);
  else
    for (CLI::App const* verb : app.get_subcommands([](CLI::App const*) { return true; }))
      if (!verb->get_group().empty()) names.push_back(verb->get_name());
  return names;
}

// Explains what is wrong with the first word that was not parsed; empty if there is none.
static std::string ExplainRest(CLI::App const& app, std::string const& command) {
  auto const words = app.remaining();
  bool const ended = !words.empty() && words[0] == "--";  // no options follow
  if (words.size() <= std::size_t{ended}) return "";
  std::string word = words[ended];
  bool const option = !ended && word.size() > 1 && word[0] == '-';
  if (option) word.resize(std::min(word.size(), word.find('=')));
  bool const verb = app.get_parent() == nullptr;
  std::string meant = option ? Elsewhere(app, word) : "";
  if (meant.empty() && (option || verb)) meant = DidYouMean(word, Names(app, option));
  char const* const what = option ? "unknown option"
                           : verb ? "unknown command"
                                  : "unexpected argument";
  return std::string(what) + " '" + word + "'" +
         (meant.empty() ? " (see " + command + " --help)" : meant);
}

// Faults of single values, in plain words.
static std::string Plain(std::string text) {
  static std::pair<std::regex, char const*> const kTexts[] = {
      {std::regex("(.*): At Most 1 required but received (.*)"), "$1: given $2 times"},
      {std::regex("(.*): 1 required (.*) missing"), "$1: needs a value ($2)"},
      {std::regex("Could not convert: (.*) = (.*)"), "$1: \"$2\" is not a number"},
      {std::regex("(.*): Value (.*) not in range (.*)"), "$1: \"$2\" is not in the range $3"}};
  for (auto const& [pattern, plain] : kTexts) text = std::regex_replace(text, pattern, plain);
  return text;
}

std::string Explain(CLI::App const& app, CLI::ParseError const& error) {
  std::string why = ExplainRest(app, app.get_name());
  auto const verbs = app.get_subcommands();
  for (CLI::App const* verb : verbs)
    if (why.empty()) why = ExplainRest(*verb, app.get_name() + " " + verb->get_name());
  if (!why.empty()) return why;
  if (!verbs.empty()) return Plain(error.what());
  auto const names = Names(app, false);
  return "missing command: " + CLI::detail::join(names, ", ") + " (see --help)";
}

}  // namespace kestro::tool
