// kestro-avi plugin: lists the classes and properties of the plug-in.
#pragma once

#include <string>

#include "cli/Answer.h"

namespace CLI {
class App;
}

namespace kestro::tool {

class PluginVerb {
 public:
  void AddTo(CLI::App& app);
  int Run();

 private:
  JsonOption _json;
  bool _markdown = false;
  std::string _plugin;
};

}  // namespace kestro::tool
