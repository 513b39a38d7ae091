#include "common/IChunkStream.h"

#include <algorithm>

namespace kestro::plugin::avi {

using base::uint64;

int IChunkStream::AddData(IO& io, Packet& packet, uint64) {
  AddChunk(packet, static_cast<uint64>(io.Tell()), 0);
  return WriteData(io, packet);
}

int IChunkStream::WriteData(IO& io, Packet& packet) {
  auto const size = static_cast<unsigned>(packet.Size());
  unsigned const written = WriteChunk(io, size, packet);
  // Lost chunks are subtracted by their index entries; an empty one has none.
  if (size > 0 || written == 8) _count += Units(size);
  _bytes += size;
  return static_cast<int>(written);
}

uint64 IChunkStream::ChunkEnd(ChunkParam const& chunk) const {
  return chunk.offset + 8 + chunk.size + chunk.size % 2;
}

void IChunkStream::DropChunk(ChunkParam const& chunk) {
  _count -= Units(chunk.size);
  _bytes -= std::min(_bytes, chunk.size);  // the entry of a text counts its padding, too
  IStream::DropChunk(chunk);
}

}  // namespace kestro::plugin::avi
