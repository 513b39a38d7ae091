// kestro-avi generate: writes the manual page and the shell completions. The build uses it.
#pragma once

#include <string>

#include "cli/Options.h"

namespace CLI {
class App;
}

namespace kestro::tool {

class PagesVerb {
 public:
  // `root`: the app with all commands.
  explicit PagesVerb(CLI::App const& root) : _root(root) {}
  // Adds the command without showing it in the help.
  void AddTo(Options& options);
  int Run();

 private:
  CLI::App const& _root;
  std::string _kind;
};

}  // namespace kestro::tool
