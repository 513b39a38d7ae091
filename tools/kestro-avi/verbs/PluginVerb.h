// kestro-avi plugin: lists the classes and properties of the plug-in.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace kestro::tool {

class PluginVerb {
 public:
  void AddTo(CLI::App& app);
  int Run();

 private:
  bool _json = false, _markdown = false;
  std::string _plugin;
};

}  // namespace kestro::tool
