// The files that extracting writes.
#pragma once

#include <string>
#include <vector>

#include "avi/AviFile.h"

namespace kestro::tool {

// One file to write, or a pattern of files, and the tracks that go there.
struct Target {
  enum Form { kStream, kWave, kSrt, kJsonLines, kNumbered, kContainer };
  std::string path;
  std::vector<std::size_t> tracks;
  Form form = kStream;
};

// Plans what is written of one AVI file: Ask or All, then Check. These throw Error.
class Targets {
 public:
  // Both outlive this.
  Targets(avi::AviFile const& avi, std::string const& file) : _avi(avi), _file(file) {}

  // Those of "N:OUT".
  void Ask(std::vector<std::string> const& wishes);
  // Every track, into a folder that is made. Returns what is left out, one line each.
  std::vector<std::string> All(std::string const& folder);
  // Refuses what cannot be written, and files that exist unless `force` is set.
  void Check(bool force) const;
  void CheckPath(std::string const& path, bool force) const;

  std::vector<Target> const& List() const { return _list; }
  std::string TrackName(std::size_t track) const;  // for messages
  // What a track would be called; empty when it cannot be extracted.
  std::string NameFor(std::size_t track) const;

 private:
  std::string Obstacle(std::size_t track) const;
  Target::Form FormOf(Target const& target) const;

  avi::AviFile const& _avi;
  std::string const& _file;
  std::vector<Target> _list;
};

}  // namespace kestro::tool
