#include "common/ListChunks.h"

namespace kestro::plugin::avi {

void ListChunk::fill(IO& io) {
  IList::fill(io);
  base::IOIntWriter(io).Write32(_type);
}

void ListChunk::parse(IO& io) { base::IOIntReader(io).Read32(_listType); }

void cmovi::parse(IO& io) {
  dataPos = io.Tell();
  ListChunk::parse(io);
  io.Seek(io.Tell() + _size, IO::kBegin);
}

}  // namespace kestro::plugin::avi
