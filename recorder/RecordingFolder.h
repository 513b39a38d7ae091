// The folder that a recorder writes to.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "recorder/RecorderOptions.h"
#include "recorder/SystemFolder.h"

namespace kestro::record {

// The folder of a recording, in the application's storage or the system's. The functions set errno
// when they return false.
class RecordingFolder {
 public:
  explicit RecordingFolder(RecorderOptions const& options);

  std::string PathOf(std::string const& name) const { return _path + name; }
  std::string NameOf(std::string const& path) const { return path.substr(_path.size()); }
  bool List(std::vector<Storage::Entry>& entries) const;
  bool Remove(Storage::Entry const& entry) const;  // a plain file that is still the same
  bool Exists(std::string const& name) const;
  base::uint64 Free() const;

 private:
  std::string const _path;                      // with its slash, or empty
  Storage* const _storage;                      // null: the system's
  std::unique_ptr<SystemFolder> const _system;  // null if not the system's
};

}  // namespace kestro::record
