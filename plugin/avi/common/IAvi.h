// Common to reading and writing an AVI file.
#pragma once

#include <vector>

#include "common/IStream.h"
#include "common/ListChunks.h"

namespace kestro::plugin::avi {

// Owns the chunk tree and the streams; a track's number is its position among the streams.
class IAvi {
 public:
  IAvi() = default;
  virtual ~IAvi() { clearStream(); }
  IAvi(IAvi const&) = delete;
  IAvi& operator=(IAvi const&) = delete;

 protected:
  void clearStream() {
    for (IStream* stream : _streams) delete stream;
    _streams.clear();
    delete _root;
    _root = nullptr;
  }

  croot* _root = nullptr;
  std::vector<IStream*> _streams;
};

}  // namespace kestro::plugin::avi
