#include "verbs/PagesVerb.h"

#include "cli/Console.h"
#include "cli/Errors.h"
#include "pages/Completions.h"
#include "pages/ManPage.h"

namespace kestro::tool {

void PagesVerb::AddTo(Options& options) {
  options.Hide();
  options.Text("KIND", _kind, "TEXT", "The shell for the completions, or man for the manual page")
      .Required()
      .OneOf({"bash", "zsh", "fish", "man"});
  options.Footer(
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
