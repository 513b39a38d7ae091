// Streams that give each of their chunks a header.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// Each packet becomes a chunk with a header of 8 bytes and padding to an even position, and is
// counted for the track's header. Called as IStream is.
class IChunkStream : public IStream {
 public:
  using IStream::IStream;

  int AddData(IO& io, Packet& packet, base::uint64 arg) override;
  // Writes a packet that AddChunk has recorded, and counts it; returns the bytes written, less
  // padding.
  virtual int WriteData(IO& io, Packet& packet);

  base::uint64 ChunkEnd(ChunkParam const& chunk) const override;
  void DropChunk(ChunkParam const& chunk) override;

 protected:
  // What a chunk of this size adds to the length in the track's header.
  virtual unsigned Units(unsigned) const { return 1; }
};

}  // namespace kestro::plugin::avi
