// A recorder's files, in memory.
#pragma once

#include <atomic>
#include <map>

#include "avi/TrackReader.h"
#include "recorder/Storage.h"
#include "support/FaultIO.h"

namespace kestro::test {

class MemoryStorage : public record::Storage {
 public:
  std::unique_ptr<base::IO> Open(std::string const& path, char const* mode) override {
    std::lock_guard lock(_mutex);
    if (Refused(path)) {
      errno = EACCES;
      return nullptr;
    }
    bool const creates = std::string(mode) == "rwbc";
    if (!creates && _files.count(path) == 0) {
      errno = ENOENT;
      return nullptr;
    }
    auto& file = _files[path];
    if (creates) file = std::make_shared<FaultIO>();
    file->Capacity(capacity);
    file->Seek(0, base::IO::kBegin);
    return std::make_unique<Handle>(file);
  }
  bool Remove(std::string const& path) override {
    std::lock_guard lock(_mutex);
    errno = EACCES;
    return !Refused(path) && _files.erase(path) != 0;
  }
  bool Exists(std::string const& path) override { return File(path) != nullptr; }
  base::uint64 Free(std::string const&) override { return free; }
  // Without sizes: files may be written at the same time.
  bool List(std::string const& folder, std::vector<Entry>& entries) override {
    std::lock_guard lock(_mutex);
    errno = ENOTSUP;
    for (auto const& [path, file] : _files)
      if (lists && file != nullptr && path.rfind('/') + 1 == folder.size() &&
          path.compare(0, folder.size(), folder) == 0)
        entries.push_back({path.substr(folder.size()), 0, modified_ns, true});
    return lists;
  }

  std::shared_ptr<FaultIO> File(std::string const& path) const {
    std::lock_guard lock(_mutex);
    auto const found = _files.find(path);
    return found != _files.end() ? found->second : nullptr;
  }
  std::string Text(std::string const& path) const {
    auto const file = File(path);
    return file != nullptr ? test::Text(MemoryIO(file->Bytes())) : "";
  }
  std::vector<std::string> Names() const {
    std::lock_guard lock(_mutex);
    std::vector<std::string> names;
    for (auto const& [name, file] : _files) names.push_back(name);
    return names;
  }
  // A reader of a file.
  std::unique_ptr<avi::AviFile> Read(std::string const& path) const {
    return std::make_unique<avi::AviFile>(std::make_unique<MemoryIO>(File(path)->Bytes()), path);
  }
  // The payloads of a track in a file or in all recordings, in the order of their names.
  std::vector<std::string> Payloads(std::size_t track, std::string const& file = {}) const {
    std::vector<std::string> all;
    for (std::string const& name : Names()) {
      bool const recording = name.size() > 4 && name.substr(name.size() - 4) == ".avi";
      if (file.empty() ? !recording : name != file) continue;
      auto const avi = Read(name);
      avi->ForEachEntry([&](avi::IndexEntry const& entry) {
        if (avi::TrackOfCode(entry.id) != static_cast<int>(track)) return;
        std::string payload(avi->DataSize(entry), '\0');
        avi->Reader().Read(entry.offset + 8, payload.data(), static_cast<unsigned>(payload.size()));
        all.push_back(std::move(payload));
      });
    }
    return all;
  }

  int64 capacity = INT64_MAX;  // of each file
  std::string refused;         // files with this in their names are not opened or removed
  std::atomic<base::uint64> free{UINT64_MAX};
  bool lists = true;
  std::int64_t modified_ns = -1;  // of all files

 private:
  bool Refused(std::string const& path) const {
    return !refused.empty() && path.find(refused) != path.npos;
  }

  struct Handle : base::IOFilter {
    explicit Handle(std::shared_ptr<FaultIO> io) : IOFilter("Handle", *io), file(std::move(io)) {}
    std::shared_ptr<FaultIO> file;
  };

  mutable std::mutex _mutex;
  std::map<std::string, std::shared_ptr<FaultIO>> _files;
};

}  // namespace kestro::test
