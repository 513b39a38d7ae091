// kestro-avi repair: makes playable files from recordings that were cut off.
#pragma once

#include <string>
#include <vector>

#include "cli/Answer.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "repair/Repair.h"

namespace kestro::tool {

class RepairVerb {
 public:
  void AddTo(Options& options);  // the object must outlive the command
  int Run();                     // returns an ExitCode; throws Error

 private:
  RepairReport RepairWithProgress() const;
  std::string Text(RepairReport const& report) const;
  Json Document(RepairReport const& report) const;

  RepairJob _job;
  std::vector<std::string> _inputs;
  std::string _rate, _plugin;
  JsonOption _json;
  bool _inPlace = false;
  ProgressOption _progress;
};

}  // namespace kestro::tool
