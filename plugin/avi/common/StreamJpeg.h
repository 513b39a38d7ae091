// Motion JPEG video.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// Stores packets exactly as they come: each begins with the 8-byte header of its chunk, id and
// size, and the index entry's size counts the whole packet, padding included. The stream counts
// neither frames nor bytes. No "strd" or "strn" is written.
class StreamJpeg : public IStream {
 public:
  StreamJpeg() : IStream("mjpg") {}

  bool muxConfig(Object* vidtag) override;
  int AddData(IO& io, Packet& packet, base::uint64 arg) override;
  base::uint64 ChunkEnd(ChunkParam const& chunk) const override {
    return chunk.offset + chunk.size;
  }

 protected:
  unsigned Units(unsigned) const override { return 0; }
};

}  // namespace kestro::plugin::avi
