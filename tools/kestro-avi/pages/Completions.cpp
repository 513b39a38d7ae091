#include "pages/Completions.h"

namespace kestro::tool {

using Value = HelpOption::Value;

// Puts a backslash before the special characters.
static std::string Escape(std::string const& text, char const* special) {
  std::string escaped;
  for (char const c : text) {
    if (std::string(special).find(c) != std::string::npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

static std::string Names(std::vector<HelpOption> const& options) {
  std::string names;
  for (HelpOption const& option : options)
    names += (names.empty() ? "" : " ") + Join(option.names, " ");
  return names;
}

// A pattern such as record:-o|record:--output.
static std::string BashPattern(HelpVerb const& verb, HelpOption const& option) {
  return verb.name + ":" + Join(option.names, "|" + verb.name + ":");
}

static std::string BashValues(HelpVerb const& verb) {
  std::string cases;
  for (HelpOption const& option : verb.options) {
    if (option.value == Value::kNone) continue;
    cases += "    " + BashPattern(verb, option) + ") ";
    switch (option.value) {
      case Value::kChoice:
        cases += "words='" + Join(option.choices, " ") + "'";
        break;
      case Value::kFolder:
        cases += "kind=folder";
        break;
      case Value::kFile:
        cases += "kind=file";
        break;
      default:
        cases += "kind=text";
    }
    cases += " ;;\n";
  }
  return cases;
}

std::string BashCompletion(Help const& help) {
  std::string values, verbs, words;
  for (HelpVerb const& verb : help.verbs) {
    values += BashValues(verb);
    verbs += verb.name + " ";
    words += "      " + verb.name + ") words='" + Names(verb.options) + "' ;;\n";
  }
  return "# bash completion for kestro-avi\n"
         "_kestro_avi() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} kind= words=\n"
         "  COMPREPLY=()\n"
         "  # bash splits --option=value into three words.\n"
         "  if [[ $prev == = ]]; then prev=${COMP_WORDS[COMP_CWORD - 2]}; fi\n"
         "  if [[ $cur == = ]]; then cur=; fi\n"
         "  case ${COMP_WORDS[1]}:$prev in\n" +
         values +
         "  esac\n"
         "  case $kind in\n"
         "    file) return ;;  # the default\n"
         "    text) compopt +o default 2>/dev/null; return ;;\n"
         "    folder)\n"
         "      mapfile -t COMPREPLY < <(compgen -d -- \"$cur\")\n"
         "      compopt -o filenames 2>/dev/null\n"
         "      return ;;\n"
         "  esac\n"
         "  if [[ $COMP_CWORD -eq 1 ]]; then\n"
         "    words='" +
         verbs + Names(help.options) +
         "'\n"
         "  elif [[ $cur == -* ]]; then\n"
         "    case ${COMP_WORDS[1]} in\n" +
         words +
         "    esac\n"
         "  fi\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$cur\")\n"
         "}\n"
         "complete -o default -F _kestro_avi kestro-avi\n";
}

// Quotes text with single quotes.
static std::string ZshQuote(std::string const& text) {
  std::string quoted;
  for (char const c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return "'" + quoted + "'";
}

static std::string ZshAction(HelpOption const& option) {
  std::string message = ":" + Escape(option.placeholder, ":") + ":";
  switch (option.value) {
    case Value::kNone:
      return "";
    case Value::kChoice:
      return message + "(" + Join(option.choices, " ") + ")";
    case Value::kFolder:
      return message + "_files -/";
    case Value::kFile:
      return message + "_files";
    case Value::kText:
      break;
  }
  return message;
}

static std::string ZshArguments(HelpVerb const& verb) {
  std::string lines;
  for (HelpOption const& option : verb.options) {
    std::string const once = option.many ? "*" : "(" + Join(option.names, " ") + ")";
    for (std::string name : option.names) {
      if (option.value != Value::kNone) name += name[1] == '-' ? "=" : "+";
      lines += " \\\n        " +
               ZshQuote(once + name + "[" + Escape(option.text, "[]") + "]" + ZshAction(option));
    }
  }
  if (!verb.argument.placeholder.empty())
    lines +=
        " \\\n        " + ZshQuote((verb.argument.many ? "*" : "1") + ZshAction(verb.argument));
  return lines;
}

std::string ZshCompletion(Help const& help) {
  std::string verbs, arguments;
  for (HelpVerb const& verb : help.verbs) {
    verbs += "    " + ZshQuote(verb.name + ":" + Escape(verb.text, ":")) + "\n";
    arguments += "    " + verb.name + ")\n      _arguments" + ZshArguments(verb) + "\n      ;;\n";
  }
  return "#compdef kestro-avi\n"
         "local curcontext=$curcontext state line\n"
         "local -a verbs=(\n" +
         verbs +
         ")\n"
         "_arguments -C '1: :->verb' '*:: :->arguments'" +
         ZshArguments(help) +
         "\n"
         "case $state in\n"
         "verb) _describe verb verbs ;;\n"
         "arguments)\n"
         "  case $line[1] in\n" +
         arguments +
         "  esac\n"
         "  ;;\n"
         "esac\n";
}

static std::string FishOption(HelpOption const& option) {
  std::string line;
  for (std::string const& name : option.names)
    line += name[1] == '-' ? " -l " + name.substr(2) : " -s " + name.substr(1);
  switch (option.value) {
    case Value::kNone:
      break;
    case Value::kText:
      line += " -x";
      break;
    case Value::kChoice:
      line += " -x -a '" + Join(option.choices, " ") + "'";
      break;
    case Value::kFile:
      line += " -r -F";
      break;
    case Value::kFolder:
      line += " -x -a '(__fish_complete_directories)'";
      break;
  }
  return line + " -d '" + Escape(option.text, "\\'") + "'\n";
}

std::string FishCompletion(Help const& help) {
  std::string const first = "complete -c kestro-avi -n __fish_use_subcommand";
  std::string lines = "# fish completion for kestro-avi\n";
  for (HelpOption const& option : help.options) lines += first + FishOption(option);
  for (HelpVerb const& verb : help.verbs) {
    lines += first + " -f -a " + verb.name + " -d '" + Escape(verb.text, "\\'") + "'\n";
    std::string const seen = " -n '__fish_seen_subcommand_from " + verb.name + "'";
    for (HelpOption const& option : verb.options)
      lines += "complete -c kestro-avi" + seen + FishOption(option);
  }
  return lines;
}

}  // namespace kestro::tool
