// The file system that a recorder writes to.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/IO.h"

namespace kestro::record {

// The file operations that a recorder needs. The default uses the system's files; derive from it
// for tests, or for devices without a file system. The recorder calls it from its own threads and
// in Push and Stop, possibly at the same time.
class KESTRO_API Storage {
 public:
  // Something in a folder.
  struct Entry {
    std::string name;
    std::uint64_t bytes = 0;
    std::int64_t modified_ns = -1;  // since 1970-01-01 UTC; negative: unknown
    bool plain = false;             // a file without other names: no link, folder, device or pipe
    std::uint64_t id = 0;           // of the file, whatever its name; 0: unknown
  };

  virtual ~Storage() = default;

  // Opens a file. `mode` is "rwbc" to create it or replace an existing one, and "r+b" or "rb" to
  // open an existing one (see base::File). Returns null and sets errno on failure; later failures
  // are reported when the stream is used.
  virtual std::unique_ptr<base::IO> Open(std::string const& path, char const* mode);
  // Returns false and sets errno when the file still exists afterwards.
  virtual bool Remove(std::string const& path);
  virtual bool Exists(std::string const& path);
  // The free space in bytes; UINT64_MAX when unknown.
  virtual base::uint64 Free(std::string const& path);
  // Lists what is in a folder: the part of a path before the name, with its slash, or empty.
  // Returns false and sets errno on failure: ENOTSUP when the storage cannot list. A storage whose
  // files are not the system's must override this.
  virtual bool List(std::string const& folder, std::vector<Entry>& entries);
};

}  // namespace kestro::record
