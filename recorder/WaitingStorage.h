// Files whose writing waits for free space.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "recorder/Storage.h"

namespace kestro::record {

// Passes everything on to another storage. New files wait where that storage is full, so that the
// writers above never learn of it while space can be freed.
class WaitingStorage : public Storage {
 public:
  struct NewFile {
    std::atomic<std::uint64_t> size{0};
    bool optional = false;  // rather not written than waited for
  };
  struct Hooks {  // called on the threads that write, with no lock held
    // A file is about to be created. Returns null if it never waits.
    std::function<std::shared_ptr<NewFile>(std::string const& path)> created;
    std::function<void(std::uint64_t bytes)> grew;  // the size of some file
    // Waits for space. False: there will be none.
    std::function<bool(bool optional)> awaitSpace;
  };
  WaitingStorage(Storage& storage, Hooks hooks) : _storage(storage), _hooks(std::move(hooks)) {}

  std::unique_ptr<base::IO> Open(std::string const& path, char const* mode) override;
  bool Remove(std::string const& path) override { return _storage.Remove(path); }
  bool Exists(std::string const& path) override { return _storage.Exists(path); }
  base::uint64 Free(std::string const& path) override { return _storage.Free(path); }
  bool List(std::string const& folder, std::vector<Entry>& entries) override {
    return _storage.List(folder, entries);
  }

 private:
  class File;

  Storage& _storage;
  Hooks const _hooks;
};

}  // namespace kestro::record
