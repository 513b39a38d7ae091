#include "Suggest.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <numeric>

namespace kestro::tool {

// How many letters are missing, too many, wrong, or swapped with the next one.
static std::size_t Distance(std::string const& a, std::string const& b) {
  std::vector<std::size_t> before, last(b.size() + 1), now(b.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    now[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        now[j] = std::min(now[j], before[j - 2] + 1);
    }
    before = std::exchange(last, now);
  }
  return last.back();
}

std::string DidYouMean(std::string const& word, std::vector<std::string> const& candidates) {
  constexpr std::size_t kShortest = 3;  // less resembles anything
  std::string const* best = nullptr;
  std::size_t least = word.size() / 4 + 2;  // too far
  for (std::string const& candidate : candidates) {
    if (std::min(word.size(), candidate.size()) < kShortest) continue;
    bool const begins = candidate.compare(0, word.size(), word) == 0;
    std::size_t const distance = begins ? 1 : Distance(word, candidate);
    if (distance >= least) continue;
    least = distance;
    best = &candidate;
  }
  return best == nullptr ? "" : "; did you mean '" + *best + "'?";
}

CLI::Validator OneOf(std::vector<std::string> const& choices) {
  auto const check = [choices](std::string const& value) {
    if (std::find(choices.begin(), choices.end(), value) != choices.end()) return std::string();
    std::string const meant = DidYouMean(value, choices);
    return "unknown value '" + value + "'" +
           (meant.empty() ? "; choose from " + CLI::detail::join(choices, ", ") : meant);
  };
  // The description is what pages are made of.
  return {check, "{" + CLI::detail::join(choices, ",") + "}"};
}

// The names of the options, or of the verbs that the help shows.
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

// What is wrong with the first word that nobody took; empty if there is none.
static std::string Unknown(CLI::App const& app, std::string const& command) {
  auto const words = app.remaining();
  bool const ended = !words.empty() && words[0] == "--";  // no option follows
  if (words.size() <= std::size_t{ended}) return "";
  std::string word = words[ended];
  bool const option = !ended && word.size() > 1 && word[0] == '-';
  if (option) word.resize(std::min(word.size(), word.find('=')));
  bool const verb = app.get_parent() == nullptr;
  std::string const meant = option || verb ? DidYouMean(word, Names(app, option)) : "";
  char const* const what = option ? "unknown option"
                           : verb ? "unknown command"
                                  : "unexpected argument";
  return std::string(what) + " '" + word + "'" +
         (meant.empty() ? " (see " + command + " --help)" : meant);
}

std::string Explain(CLI::App const& app, CLI::ParseError const& error) {
  std::string why = Unknown(app, app.get_name());
  auto const verbs = app.get_subcommands();
  for (CLI::App const* verb : verbs)
    if (why.empty()) why = Unknown(*verb, app.get_name() + " " + verb->get_name());
  if (!why.empty()) return why;
  if (!verbs.empty()) return error.what();
  auto const names = Names(app, false);
  return "missing command: " + CLI::detail::join(names, ", ") + " (see --help)";
}

}  // namespace kestro::tool
