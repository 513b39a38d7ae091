// kestro-avi plugin: lists the classes and properties of the plug-in.
#pragma once

#include <string>

#include "cli/Answer.h"
#include "cli/Options.h"

namespace kestro::tool {

class PluginVerb {
 public:
  void AddTo(Options& options);
  int Run();

 private:
  JsonOption _json;
  bool _markdown = false;
  std::string _plugin;
};

}  // namespace kestro::tool
