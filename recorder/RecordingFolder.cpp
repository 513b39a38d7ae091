#include "recorder/RecordingFolder.h"

#include "recorder/SegmentNames.h"

namespace kestro::record {

RecordingFolder::RecordingFolder(RecorderOptions const& options)
    : _path(FolderOf(options.path)),
      _storage(options.storage),
      _system(_storage == nullptr ? std::make_unique<SystemFolder>(_path) : nullptr) {}

bool RecordingFolder::List(std::vector<Storage::Entry>& entries) const {
  return _system ? _system->List(entries) : _storage->List(_path, entries);
}

bool RecordingFolder::Remove(Storage::Entry const& entry) const {
  return _system ? _system->Remove(entry) : _storage->Remove(PathOf(entry.name));
}

bool RecordingFolder::Exists(std::string const& name) const {
  return _system ? _system->Exists(name) : _storage->Exists(PathOf(name));
}

base::uint64 RecordingFolder::Free() const {
  return _system ? _system->Free() : _storage->Free(_path);
}

}  // namespace kestro::record
