// Detects what cannot be read of a stream.
#pragma once

#include <algorithm>
#include <cstdint>

#include "base/IO.h"

namespace kestro::plugin::avi {

// Passes everything on, and notes reads that stop before the end of the stream.
class ReadWatch : public base::IOFilter {
 public:
  explicit ReadWatch(base::IO& io) : IOFilter("ReadWatch", io) {}

  bool Failed() const { return _failed; }  // a read returned nothing
  // The position of the first byte that could not be read; INT64_MAX if there is none.
  base::int64 StoppedAt() const { return _stoppedAt; }

  unsigned Read(void* data, unsigned size) override {
    base::int64 const at = Tell();
    unsigned const got = _io.Read(data, size);
    _failed |= got == kFailed;
    if (got == kFailed)
      _stoppedAt = std::min(_stoppedAt, at);
    else if (got < size && at + got < Size())
      _stoppedAt = std::min(_stoppedAt, at + got);
    return got;
  }

 private:
  bool _failed = false;
  base::int64 _stoppedAt = INT64_MAX;
};

}  // namespace kestro::plugin::avi
