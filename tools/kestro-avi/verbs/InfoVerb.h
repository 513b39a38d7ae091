// kestro-avi info: describes AVI files.
#pragma once

#include <string>
#include <vector>

#include "cli/Answer.h"
#include "cli/Options.h"

namespace kestro::avi {
class AviFile;
}

namespace kestro::tool {

class InfoVerb {
 public:
  void AddTo(Options& options);
  int Run();

 private:
  void Draw(avi::AviFile& avi, std::string const& path) const;

  std::vector<std::string> _files;
  std::string _plot;
  JsonOption _json;
  bool _tree = false, _deep = false, _force = false;
};

}  // namespace kestro::tool
