// kestro-avi verify: checks AVI files.
#pragma once

#include <string>
#include <vector>

#include "cli/Answer.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "verify/Findings.h"

namespace kestro::tool {

class VerifyVerb {
 public:
  void AddTo(Options& options);
  int Run();

 private:
  Json Decode(std::string const& path, Findings& findings) const;
  int WriteHashes() const;
  int CheckHashes() const;

  std::vector<std::string> _files;
  JsonOption _json;
  bool _deep = false, _decode = false, _hash = false, _check = false, _force = false;
  ProgressOption _progress;
};

}  // namespace kestro::tool
