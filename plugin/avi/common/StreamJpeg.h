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
  // Writes and counts a packet that comes without a header, and gives it one whose size is
  // big-endian, as it has always been. Recording does not use it.
  virtual int WriteData(IO& io, Packet& packet);
};

}  // namespace kestro::plugin::avi
