// kestro-avi generate: the manual page and the completions, for the build.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace kestro::tool {

class PagesVerb {
 public:
  // `root` is the whole command line.
  explicit PagesVerb(CLI::App const& root) : _root(root) {}
  // The help does not show the verb.
  void AddTo(CLI::App& app);
  int Run();

 private:
  CLI::App const& _root;
  std::string _kind;
};

}  // namespace kestro::tool
