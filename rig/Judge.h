// Judges the files that were copied from a state of the disk.
#pragma once

#include <map>

#include "crash/Judge.h"
#include "rig/Disk.h"

namespace kestro::rig {

// Plays the files, repairs them as the tool does and plays the results. The tool itself plays them
// too where that is wanted or the end of a file cannot be read.
class Judge {
 public:
  // `scratch`: a folder of its own; `longest`: packets of a film.
  Judge(std::string tool, std::string scratch, bool callback, int longest)
      : _tool(std::move(tool)),
        _scratch(std::move(scratch)),
        _callback(callback),
        _longest(longest) {
    test::RegisterClasses();
  }

  // Returns the faults; none when every promised packet is played and found by a repair. The number
  // in "NAME.readable" is how much of the file NAME can be read: what follows is EIO.
  std::string Faults(std::string const& folder, Promise const& promise, bool withTool);

 private:
  std::string File(std::string const& path, crash::Recorded const& expected, int64 promised,
                   bool plays, bool withTool);
  std::string Play(std::string const& path, crash::Recorded const& expected, int64 promised,
                   bool repaired);
  std::string Repair(std::string const& path, crash::Recorded const& expected, int64 promised,
                     std::size_t indexed);
  std::string ToolPlays(std::string const& path, std::size_t packets) const;

  std::string const _tool, _scratch;
  bool const _callback;
  int const _longest;
  std::map<std::pair<int, int>, crash::Recorded> _expected;  // by the first packet and scale
};

}  // namespace kestro::rig
