// Reads the help of the command line, for the manual page and the completions.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kestro::tool {

struct HelpOption {
  enum class Value { kNone, kText, kChoice, kFile, kFolder };

  std::vector<std::string> names;  // with dashes, short ones first
  Value value = Value::kNone;
  std::string placeholder;  // of the value: OUT.avi
  std::string limits;       // of the value: UINT in [1 - 2000]
  std::vector<std::string> choices;
  std::string text;
  bool many = false;  // may be repeated
};

struct HelpVerb {
  std::string name, text, footer;
  std::vector<HelpOption> options;
  HelpOption argument;  // has no name; no placeholder if the command takes no argument
};

struct Help : HelpVerb {
  std::vector<HelpVerb> verbs;  // without hidden ones
};

Help ReadHelp(CLI::App const& app);

// The words with `glue` between them.
std::string Join(std::vector<std::string> const& words, std::string const& glue);

}  // namespace kestro::tool
