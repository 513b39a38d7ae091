#include "verbs/PagesVerb.h"

#include <CLI/CLI.hpp>

#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Suggest.h"
#include "pages/Completions.h"
#include "pages/ManPage.h"

namespace kestro::tool {

void PagesVerb::AddTo(CLI::App& app) {
  app.group("");
  app.add_option("KIND", _kind, "The shell for the completions, or man for the manual page")
      ->required()
      ->check(OneOf({"bash", "zsh", "fish", "man"}));
  app.footer(
      "Examples:\n"
      "  kestro-avi generate man | man -l -\n"
      "  kestro-avi generate bash >~/.local/share/bash-completion/completions/kestro-avi");
}

int PagesVerb::Run() {
  Help const help = ReadHelp(_root);
  WriteData(_kind == "bash"   ? BashCompletion(help)
            : _kind == "zsh"  ? ZshCompletion(help)
            : _kind == "fish" ? FishCompletion(help)
                              : ManPage(help));
  return kOk;
}

}  // namespace kestro::tool
