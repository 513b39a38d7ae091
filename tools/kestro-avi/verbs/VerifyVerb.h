// kestro-avi verify: checks AVI files.
#pragma once

#include <string>
#include <vector>

#include "cli/Progress.h"

namespace CLI {
class App;
}

namespace kestro::tool {

class VerifyVerb {
 public:
  void AddTo(CLI::App& app);
  int Run();

 private:
  std::vector<std::string> _files;
  bool _json = false, _deep = false;
  ProgressOption _progress;
};

}  // namespace kestro::tool
