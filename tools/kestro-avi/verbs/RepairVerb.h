// kestro-avi repair: playable files of recordings that were cut off.
#pragma once

#include <string>

#include "cli/Progress.h"
#include "repair/Repair.h"

namespace CLI {
class App;
}

namespace kestro::tool {

class RepairVerb {
 public:
  void AddTo(CLI::App& app);  // describes the verb; the object outlives the app's use
  int Run();                  // an ExitCode; throws Error

 private:
  RepairReport WatchedRepair() const;
  std::string Text(RepairReport const& report) const;
  std::string Document(RepairReport const& report) const;

  RepairJob _job;
  std::string _rate, _plugin;
  bool _json = false;
  ProgressOption _progress;
};

}  // namespace kestro::tool
