// Where files are kept.
#pragma once

#include <memory>
#include <string>

#include "base/IO.h"

namespace kestro::record {

// What a recorder asks of a file system. Tests, and devices without one, have their own. Called
// from threads of the recorder and in Push and Stop, also at the same time.
class KESTRO_API Storage {
 public:
  virtual ~Storage() = default;

  // A stream over a file; `mode` is "rwbc" for a new one, in place of one of that name, "r+b" or
  // "rb" for one that exists (see base::File). Null on failure, with errno. What fails later shows
  // when the stream is used.
  virtual std::unique_ptr<base::IO> Open(std::string const& path, char const* mode);
  // False, with errno, when a file of that name is left.
  virtual bool Remove(std::string const& path);
  virtual bool Exists(std::string const& path);
  // Bytes that could be stored yet; UINT64_MAX where that is unknown.
  virtual base::uint64 Free(std::string const& path);
};

}  // namespace kestro::record
