#include "pages/ManPage.h"

#include <cctype>
#include <sstream>

namespace kestro::tool {

// Escapes text for roff. In `code`, and at the start of an option, a dash is not a hyphen.
static std::string Roff(std::string const& text, bool code = false) {
  std::string out;
  bool word = false;  // inside a word
  for (char const c : text) {
    if (c == '\\')
      out += "\\e";
    else if (c == '-' && (code || !word))
      out += "\\-";
    else if (c == '\'' && code)
      out += "\\(aq";
    else if ((c == '.' || c == '\'') && (out.empty() || out.back() == '\n'))
      out += std::string("\\&") + c;  // else it would be a request
    else
      out += c;
    word = std::isalnum(static_cast<unsigned char>(c)) != 0;
  }
  return out;
}

static std::string Bold(std::string const& text) { return "\\fB" + Roff(text, true) + "\\fR"; }
static std::string Italic(std::string const& text) { return "\\fI" + Roff(text, true) + "\\fR"; }

static std::string Option(HelpOption const& option) {
  std::string lines = ".TP\n", names;
  for (std::string const& name : option.names) names += (names.empty() ? "" : ", ") + Bold(name);
  lines += names;
  if (!option.choices.empty())
    lines += " " + Bold(Join(option.choices, "|"));
  else if (!option.placeholder.empty())
    lines += " " + Italic(option.placeholder);
  lines += "\n" + Roff(option.text);
  if (!option.limits.empty()) lines += " (" + Roff(option.limits) + ")";
  return lines + ".\n";
}

// The paragraphs of a footer. Examples keep their lines.
static std::string Footer(std::string const& footer) {
  std::istringstream lines(footer);
  std::string page = ".PP\n", line;
  bool examples = false;
  while (std::getline(lines, line)) {
    if (line == "Examples:") {
      page += "Examples:\n.PP\n.nf\n";
      examples = true;
    } else if (line.empty()) {
      page += examples ? ".fi\n.PP\n" : ".PP\n";
      examples = false;
    } else {
      page += Roff(line, examples) + "\n";
    }
  }
  return examples ? page + ".fi\n" : page;
}

static std::string Verb(HelpVerb const& verb) {
  std::string page =
      ".SS " + verb.name + "\n" + Bold("kestro-avi " + verb.name) + " [" + Italic("OPTIONS") + "]";
  if (!verb.argument.placeholder.empty())
    page += " " + Italic(verb.argument.placeholder) + (verb.argument.many ? " ..." : "");
  page += "\n.PP\n" + Roff(verb.text) + ".\n";
  if (!verb.argument.placeholder.empty())
    page += ".TP\n" + Italic(verb.argument.placeholder) + "\n" + Roff(verb.argument.text) + ".\n";
  for (HelpOption const& option : verb.options) page += Option(option);
  return page + Footer(verb.footer);
}

std::string ManPage(Help const& help) {
  std::string page = ".TH KESTRO\\-AVI 1 \"\" \"kestro\\-avi " KESTRO_VERSION
                     "\" \"User Commands\"\n"
                     ".SH NAME\n"
                     "kestro\\-avi \\- record, play, check and repair AVI files\n"
                     ".SH SYNOPSIS\n" +
                     Bold("kestro-avi") + " " + Italic("COMMAND") + " [" + Italic("OPTIONS") +
                     "] [" + Italic("FILE") + " ...]\n.SH DESCRIPTION\n" + Roff(help.text) + "\n";
  for (HelpOption const& option : help.options) page += Option(option);
  page += Footer(help.footer) + ".SH COMMANDS\n";
  for (HelpVerb const& verb : help.verbs) page += Verb(verb);
  return page +
         ".SH ENVIRONMENT\n"
         ".TP\n\\fBKESTRO_PLUGIN_PATH\\fR\n"
         "The plug\\-in or its folder, used without \\fB\\-\\-plugin\\fR. Without both, the tool "
         "searches\nfor the plug\\-in next to itself and where both were installed.\n";
}

}  // namespace kestro::tool
