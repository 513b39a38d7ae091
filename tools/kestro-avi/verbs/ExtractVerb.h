// kestro-avi extract: tracks out of an AVI file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "avi/AviFile.h"
#include "cli/Progress.h"
#include "media/FrameOrder.h"
#include "media/Output.h"
#include "verbs/Targets.h"

namespace CLI {
class App;
}

namespace kestro::tool {

class ExtractVerb {
 public:
  void AddTo(CLI::App& app);
  int Run();

 private:
  void ListTracks(avi::AviFile const& avi) const;
  std::uint64_t Work(avi::AviFile const& avi, Targets const& targets) const;
  void OrderFrames(avi::AviFile& avi, Targets const& targets, Progress& progress);
  std::unique_ptr<Output> Open(avi::AviFile const& avi, Targets const& targets,
                               Target const& target) const;
  void WriteStreamData();
  int Copy(avi::AviFile& avi, Targets const& targets, Progress& progress);
  int Finish(Targets const& targets, std::vector<std::string> const& faults);

  std::string _file, _folder, _streamData, _plugin;
  std::vector<std::string> _wishes;
  bool _force = false;
  ProgressOption _progress;

  std::vector<std::unique_ptr<FrameOrder>> _orders;  // by track, where needed
  std::vector<std::unique_ptr<Output>> _outputs;     // by target
  std::uint64_t _done = 0;                           // bytes of tracks
  bool _findings = false;
};

}  // namespace kestro::tool
