// Decides which files "extract" writes.
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

// The files to write for one AVI file. Call AddSelected or AddAll, then Check; all throw Error.
class Targets {
 public:
  // Both must outlive the object.
  Targets(avi::AviFile const& avi, std::string const& file) : _avi(avi), _file(file) {}

  // Adds files from texts "N:OUT".
  void AddSelected(std::vector<std::string> const& texts);
  // Adds a file in the folder for every track, and creates the folder. Returns the tracks that
  // cannot be extracted, one line each.
  std::vector<std::string> AddAll(std::string const& folder);
  // Throws when a file cannot be written, or when it exists and `force` is not set.
  void Check(bool force) const;
  void CheckPath(std::string const& path, bool force) const;

  std::vector<Target> const& List() const { return _list; }
  std::string TrackName(std::size_t track) const;  // for messages
  // The default file name for a track; empty when it cannot be extracted.
  std::string NameFor(std::size_t track) const;

 private:
  std::string Obstacle(std::size_t track) const;
  Target::Form FormOf(Target const& target) const;
  Target::Form FormOfOutput(Target const& target) const;

  avi::AviFile const& _avi;
  std::string const& _file;
  std::vector<Target> _list;
};

}  // namespace kestro::tool
