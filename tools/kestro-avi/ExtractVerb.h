// kestro-avi extract: tracks out of an AVI file.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "avi/AviFile.h"
#include "output/FrameOrder.h"
#include "output/Output.h"

namespace CLI {
class App;
}

namespace kestro::tool {

class ExtractVerb {
 public:
  void AddTo(CLI::App& app);
  int Run();

 private:
  // One file to write and the tracks that go there.
  struct Target {
    std::string path;
    std::vector<std::size_t> tracks;
  };
  enum class Form { kStream, kWave, kContainer };

  void ListTracks(AviFile const& avi) const;
  std::string NameFor(AviFile const& avi, std::size_t track) const;
  void AskedTargets(AviFile const& avi);
  void AllTargets(AviFile const& avi);
  void CheckTargets(AviFile const& avi) const;
  Form FormOf(AviFile const& avi, Target const& target) const;
  void OrderFrames(AviFile& avi);
  void OpenOutputs(AviFile const& avi);
  int Copy(AviFile& avi);
  std::string TrackName(std::size_t track) const;

  std::string _file, _folder;
  std::vector<std::string> _wishes;
  bool _force = false;

  std::vector<Target> _targets;
  std::vector<std::unique_ptr<FrameOrder>> _orders;  // by track, where needed
  std::vector<std::unique_ptr<Output>> _outputs;     // by target
  bool _findings = false;
};

}  // namespace kestro::tool
