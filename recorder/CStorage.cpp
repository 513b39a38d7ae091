#include "recorder/CStorage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kestro::record {

namespace {
// A file opened by the application's functions.
class CFile : public base::IO {
 public:
  CFile(kestro_recorder_storage const& storage, void* file)
      : IO("CFile"), _storage(storage), _file(file) {}
  ~CFile() override { _storage.close(_storage.context, _file); }

  base::int64 Size() override { return Check(_storage.length(_storage.context, _file)); }
  base::int64 Tell() override { return _position; }
  bool Seek(base::int64 offset, int whence) override {
    return base::SeekTarget(*this, offset, whence, _position);
  }
  unsigned Read(void* data, unsigned size) override {
    auto const done = Check(_storage.read(_storage.context, _file, _position, data, size));
    if (done > 0) _position += done;
    return done < 0 ? kFailed : static_cast<unsigned>(done);
  }
  unsigned Write(void const* data, unsigned size) override {
    auto const done = Check(_storage.write(_storage.context, _file, _position, data, size));
    if (done > 0) _position += done;
    return done < 0 ? 0 : static_cast<unsigned>(done);
  }
  bool Flush() override { return Check(_storage.flush(_storage.context, _file)) >= 0; }
  bool Truncate(base::int64 size) override {
    return Check(_storage.truncate(_storage.context, _file, size)) >= 0;
  }
  int Error() override { return _error; }

 private:
  base::int64 Check(base::int64 result) {
    if (result < 0) _error = static_cast<int>(-result);
    return result < 0 ? -1 : result;
  }

  kestro_recorder_storage const& _storage;
  void* const _file;
  base::int64 _position = 0;
  int _error = 0;
};
}  // namespace

std::unique_ptr<base::IO> CStorage::Open(std::string const& path, char const* mode) {
  void* file = nullptr;
  int const error = _storage.open(_storage.context, path.c_str(), mode, &file);
  if (error >= 0) return std::make_unique<CFile>(_storage, file);
  errno = -error;
  return nullptr;
}

bool CStorage::Remove(std::string const& path) {
  int const error = _storage.remove(_storage.context, path.c_str());
  errno = -error;
  return error >= 0 || error == -ENOENT;
}

bool CStorage::Exists(std::string const& path) {
  return _storage.exists(_storage.context, path.c_str()) > 0;
}

base::uint64 CStorage::Free(std::string const& path) {
  return _storage.available != nullptr ? _storage.available(_storage.context, path.c_str())
                                       : UINT64_MAX;
}

bool CStorage::List(std::string const& folder, std::vector<Entry>& entries) {
  if (_storage.list == nullptr) {
    errno = ENOTSUP;
    return false;
  }
  // An exception must not pass through the application's function.
  struct Found {
    std::vector<Entry>& entries;
    bool memory = true;
  } found{entries};
  auto const add = [](void* to, kestro_recorder_entry const* entry) {
    kestro_recorder_entry own = {};
    if (entry == nullptr || entry->size < sizeof own.size) return;
    std::memcpy(&own, entry, std::min(entry->size, sizeof own));
    if (own.name == nullptr) return;
    auto& list = *static_cast<Found*>(to);
    try {
      list.entries.push_back({own.name, own.bytes, own.modified_ns, own.plain != 0});
    } catch (std::bad_alloc const&) {
      list.memory = false;
    }
  };
  int const error = _storage.list(_storage.context, folder.c_str(), add, &found);
  errno = error < 0 ? -error : ENOMEM;
  return error >= 0 && found.memory;
}

}  // namespace kestro::record
