#include "pages/Help.h"

#include <CLI/CLI.hpp>

namespace kestro::tool {

// Parses the type of a value, such as "MODE:{normal,fast}", "N:UINT in [1 - 9]", "N:OUT" or "FILE".
static void ReadType(std::string const& type, HelpOption& option) {
  using Value = HelpOption::Value;
  std::size_t end = type.size();
  if (auto const list = type.find(":{"); list != type.npos) {
    end = list;
    option.choices = CLI::detail::split(type.substr(list + 2, type.size() - list - 3), ',');
  } else if (auto const limits = type.find(" in ["); limits != type.npos) {
    end = type.rfind(':', limits);
    option.limits = type.substr(end + 1);
  } else if (auto const size = type.find(":SIZE ["); size != type.npos) {
    end = size;
  }
  option.placeholder = type.substr(0, end);
  bool const file = option.placeholder == "FILE" || option.placeholder == "PATH" ||
                    option.placeholder.rfind("OUT.", 0) == 0;
  option.value = !option.choices.empty()       ? Value::kChoice
                 : option.placeholder == "DIR" ? Value::kFolder
                 : file                        ? Value::kFile
                                               : Value::kText;
}

static HelpVerb ReadVerb(CLI::App const& app) {
  HelpVerb verb;
  verb.name = app.get_name();
  verb.text = app.get_description();
  verb.footer = app.get_footer();
  for (CLI::Option const* from : app.get_options()) {
    HelpOption option;
    option.text = from->get_description();
    option.many = from->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
    for (std::string const& name : from->get_snames()) option.names.push_back("-" + name);
    for (std::string const& name : from->get_lnames()) option.names.push_back("--" + name);
    if (from->get_positional()) {
      option.value = HelpOption::Value::kFile;
      option.placeholder = from->get_name(true);
      option.many = from->get_expected_max() > 1;
      verb.argument = option;
      continue;
    }
    if (from->get_items_expected_max() > 0) ReadType(from->get_type_name(), option);
    verb.options.push_back(option);
  }
  return verb;
}

Help ReadHelp(CLI::App const& app) {
  Help help;
  static_cast<HelpVerb&>(help) = ReadVerb(app);
  for (CLI::App const* verb : app.get_subcommands([](CLI::App const*) { return true; }))
    if (!verb->get_group().empty()) help.verbs.push_back(ReadVerb(*verb));
  return help;
}

std::string Join(std::vector<std::string> const& words, std::string const& glue) {
  return CLI::detail::join(words, glue);
}

}  // namespace kestro::tool
