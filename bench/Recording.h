// Recordings in memory and on disk.
#pragma once

#include <string>
#include <vector>

#include "Mix.h"

namespace kestro::bench {

// A path on tmpfs that no other process uses.
std::string TmpfsPath(char const* name);
// The same on a disk.
std::string DiskPath(char const* name);

// An AVI file on tmpfs with packets of a mix. It is recorded by the first call of Path, and the
// destructor removes it.
class Recording {
 public:
  // The payload of an indexed chunk.
  struct Chunk {
    std::int64_t at;
    std::size_t size;
  };

  Recording(char const* name, Mix::Sizes sizes, std::int64_t packets)
      : _path(TmpfsPath(name)), _sizes(sizes), _packets(packets) {}
  // A file that another process has recorded, and will remove.
  explicit Recording(std::string path) : _path(std::move(path)) {}
  ~Recording();
  Recording(Recording const&) = delete;
  Recording& operator=(Recording const&) = delete;

  std::string const& Path();
  std::int64_t Packets() const { return _packets; }
  // In the order of the index. Throws when the index is incomplete.
  std::vector<Chunk> Chunks();

 private:
  std::string const _path;
  Mix::Sizes const _sizes;
  std::int64_t const _packets = 0;  // 0: the file is of another process
  bool _recorded = false;
};

}  // namespace kestro::bench
