// kestro-avi info: what AVI files hold.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kestro::tool {

class InfoVerb {
 public:
  void AddTo(CLI::App& app);
  int Run();

 private:
  std::vector<std::string> _files;
  bool _json = false, _tree = false;
};

}  // namespace kestro::tool
