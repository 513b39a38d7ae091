// The files of a recording that are in its folder.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "avi/NamePattern.h"
#include "recorder/Storage.h"

namespace kestro::record {

// A file of a recording with its side files, or side files whose recording is gone.
struct OwnFile {
  std::uint64_t number = 0;
  std::string name;
  bool present = false;  // the recording is there
  bool kept = false;     // it has a marker
  bool foreign = false;  // something else than a plain file has its name
  std::int64_t modified_ns = -1;
  std::vector<Storage::Entry> parts;  // plain files; the recording first
  std::uint64_t Bytes() const;
};

class Catalogue {
 public:
  static constexpr char kMarker[] = ".keep";  // appended to the name of a protected file

  // What the name of something in the folder means.
  struct Meaning {
    std::uint64_t number;
    std::string name;    // of the recording
    std::string ending;  // after it; empty for the recording itself
  };
  static std::optional<Meaning> Recognise(avi::NamePattern const& pattern, std::string const& name);

  // The files of a recording, by number. Leaves out what is next to a foreign entry.
  static std::vector<OwnFile> Read(avi::NamePattern const& pattern,
                                   std::vector<Storage::Entry> const& entries);
};

// The clocks by which files age.
struct AgeClocks {
  std::int64_t now_ns = 0, start_ns = 0;             // RecorderOptions::clock: now; at the start
  std::int64_t wall_ns = 0;                          // since 1970-01-01 UTC
  std::map<std::string, std::int64_t> const& ended;  // this recorder's files, on the first clock
};
// How long ago each file has ended; -1: unknown. Order goes by number: a file is at least as old as
// those after it, whatever their times say, and this recorder's files age on its own clock, so that
// setting the wall clock does not make them old.
std::vector<std::int64_t> Ages_ns(std::vector<OwnFile> const& files, AgeClocks const& clocks);

}  // namespace kestro::record
