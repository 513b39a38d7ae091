// kestro-avi extract: writes tracks of an AVI file to other files.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "avi/AviFile.h"
#include "cli/Answer.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "media/FrameOrder.h"
#include "media/Output.h"
#include "verbs/ExtractRange.h"
#include "verbs/Targets.h"

namespace kestro::tool {

class ExtractVerb {
 public:
  void AddTo(Options& options);
  int Run();

 private:
  void ListTracks(avi::AviFile const& avi) const;
  std::uint64_t BytesToRead(avi::AviFile const& avi, Targets const& targets) const;
  using PieceSink = std::function<void(std::size_t track, avi::Piece const& piece)>;
  std::vector<std::string> ReadTracks(avi::AviFile& avi, std::vector<bool> const& selected,
                                      Progress& progress, PieceSink const& sink);
  void OrderFrames(avi::AviFile& avi, Targets const& targets, Progress& progress);
  std::unique_ptr<Output> OpenOutput(avi::AviFile const& avi, Targets const& targets,
                                     Target const& target) const;
  void WriteStreamData();
  void AddWritten(std::string const& path, std::vector<std::size_t> const& tracks,
                  Written const& written);
  int Copy(avi::AviFile& avi, Targets const& targets, Progress& progress);
  int Finish(Targets const& targets, std::vector<std::string> const& faults);

  std::string _file, _folder, _streamData, _plugin, _from, _to;
  std::vector<std::string> _tracks;  // "N:OUT"
  JsonOption _json;
  bool _force = false;
  ProgressOption _progress;

  std::optional<ExtractRange> _range;
  std::vector<avi::AviTrack> _described;             // the tracks as they are written
  std::vector<std::unique_ptr<FrameOrder>> _orders;  // by track; null where not needed
  std::vector<std::unique_ptr<Output>> _outputs;     // by target
  std::uint64_t _done = 0;                           // bytes read
  Json _written = Json::array();
  bool _findings = false;
};

}  // namespace kestro::tool
