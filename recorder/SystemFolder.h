// A folder of the system's files.
#pragma once

#include <string>
#include <vector>

#include "recorder/Storage.h"

namespace kestro::record {

// Keeps a folder open, so that all functions mean this folder even when its name belongs to another
// one in the meantime. The functions return false and set errno on failure, also when the folder
// could not be opened.
class SystemFolder {
 public:
  explicit SystemFolder(std::string const& folder);  // as for Storage::List
  ~SystemFolder();
  SystemFolder(SystemFolder const&) = delete;
  SystemFolder& operator=(SystemFolder const&) = delete;

  bool List(std::vector<Storage::Entry>& entries) const;
  // Removes the entry if it still is the same plain file; fails with ESTALE otherwise.
  bool Remove(Storage::Entry const& entry) const;
  bool Exists(std::string const& name) const;  // whatever it is, also a link to nothing
  base::uint64 Free() const;                   // bytes; UINT64_MAX when unknown

 private:
  bool Look(std::string const& name, Storage::Entry& entry) const;

  int const _folder;
  int const _error;  // of opening it
};

}  // namespace kestro::record
