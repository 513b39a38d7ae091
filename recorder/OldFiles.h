// Deletes a recorder's files.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "recorder/Catalogue.h"
#include "recorder/RecordingFolder.h"

namespace kestro::record {

// Knows the files of a recorder in its folder, and deletes single ones. Used by one thread at a
// time.
class OldFiles {
 public:
  struct Hooks {
    std::function<void(Event)> report;
    // Whether a file must not be deleted, besides those with a marker. May be null.
    std::function<bool(std::string const& path)> isProtected;
  };
  // The arguments must outlive the object.
  OldFiles(RecordingFolder const& folder, avi::NamePattern const& pattern, Hooks const& hooks)
      : _folder(folder), _pattern(pattern), _hooks(hooks) {}

  bool Scan();  // false on failure; see errno
  std::chrono::steady_clock::time_point Scanned() const { return _scanned; }
  std::vector<OwnFile> const& List() const { return _files; }  // by number
  // The first file that may be deleted and for which `goes` is true, given its index; List().size()
  // if there is none.
  std::size_t Oldest(std::function<bool(std::size_t)> const& goes) const;

  // What became of a file that was to be deleted.
  struct Outcome {
    std::optional<OwnFile> deleted;
    bool changed = false;  // it is not as it was: look at the folder again
  };
  Outcome Delete(std::size_t index);

 private:
  using Clock = std::chrono::steady_clock;

  bool IsProtected(OwnFile const& file) const;
  bool RemoveParts(OwnFile const& file);

  RecordingFolder const& _folder;
  avi::NamePattern const& _pattern;
  Hooks const& _hooks;
  std::vector<OwnFile> _files;
  std::map<std::string, Clock::time_point> _refused;  // could not be deleted; when to try again
  Clock::time_point _scanned{};
};

}  // namespace kestro::record
