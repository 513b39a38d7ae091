// kestro-avi info: what AVI files hold.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kestro::tool {

struct AviTrack;
// What a track is, for people, in lines.
std::string TrackText(AviTrack const& track, std::size_t number);

class InfoVerb {
 public:
  void AddTo(CLI::App& app);
  int Run();

 private:
  std::vector<std::string> _files;
  bool _json = false, _tree = false;
};

}  // namespace kestro::tool
