// Streams that write a header for each of their chunks.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// Each packet becomes a chunk with an 8-byte header, padded to an even position, and is counted in
// the track's header. Used like IStream.
class IChunkStream : public IStream {
 public:
  using IStream::IStream;

  int AddData(IO& io, Packet& packet, base::uint64 arg) override;
  // Writes and counts a packet that AddChunk has added to the index. Returns the bytes written,
  // without padding.
  virtual int WriteData(IO& io, Packet& packet);

  base::uint64 ChunkEnd(ChunkParam const& chunk) const override;
  void DropChunk(ChunkParam const& chunk) override;

 protected:
  // How much a chunk of this size adds to the length in the track's header.
  virtual unsigned Units(unsigned) const { return 1; }
};

}  // namespace kestro::plugin::avi
