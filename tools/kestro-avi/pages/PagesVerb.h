// kestro-avi generate: the manual page and the completions, for the build.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace kestro::tool {

class PagesVerb {
 public:
  // The help does not show the verb.
  void AddTo(CLI::App& app);
  // `root` is the whole command line.
  int Run(CLI::App const& root);

 private:
  std::string _kind;
};

}  // namespace kestro::tool
