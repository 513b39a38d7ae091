// What the command line says of itself, for those who write pages of it.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kestro::tool {

struct HelpOption {
  enum class Value { kNone, kText, kChoice, kFile, kFolder };

  std::vector<std::string> names;  // with their dashes, short ones first
  Value value = Value::kNone;
  std::string placeholder;  // of the value: OUT.avi
  std::string limits;       // of the value: UINT in [1 - 2000]
  std::vector<std::string> choices;
  std::string text;
  bool many = false;  // may be given more than once
};

struct HelpVerb {
  std::string name, text, footer;
  std::vector<HelpOption> options;
  HelpOption argument;  // without a name; without a placeholder where the verb takes none
};

struct Help : HelpVerb {
  std::vector<HelpVerb> verbs;  // without those that the help does not show
};

Help ReadHelp(CLI::App const& app);

// The words with `glue` between them.
std::string Join(std::vector<std::string> const& words, std::string const& glue);

}  // namespace kestro::tool
