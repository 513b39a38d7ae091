#include "cli/Suggest.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "cli/DidYouMean.h"

namespace kestro::tool {

CLI::Validator NotEmpty() {
  return {[](std::string const& value) { return value.empty() ? "the value is empty" : ""; }, ""};
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
static std::string Plain(std::string const& text) {
  // What the library writes before, between and after two values, and what is written instead.
  static constexpr struct {
    std::string_view begin, middle, end, plainMiddle, plainEnd;
  } kTexts[] = {{"", ": At Most 1 required but received ", "", ": given ", " times"},
                {"", ": 1 required ", " missing", ": needs a value (", ")"},
                {"Could not convert: ", " = ", "", ": \"", "\" is not a number"},
                {"", ": Value ", " not in range ", ": \"", "\" is not in the range "}};
  for (auto const& known : kTexts) {
    std::size_t const middle = text.rfind(known.middle), from = middle + known.middle.size();
    if (middle == text.npos || text.compare(0, known.begin.size(), known.begin) != 0) continue;
    std::size_t const end = known.end.empty() ? text.size() : text.rfind(known.end);
    if (end == text.npos || end < from) continue;
    return text.substr(known.begin.size(), middle - known.begin.size())
        .append(known.plainMiddle)
        .append(text, from, end - from)
        .append(known.plainEnd)
        .append(text, end + known.end.size());
  }
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
