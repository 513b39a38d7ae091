// Motion JPEG video.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// Stores packets exactly as they come. Each begins with the 8-byte header of its chunk, id and
// size; its index entry has the size of the whole packet, padding included. The stream counts
// neither frames nor bytes, and writes no "strd" or "strn".
class StreamJpeg : public IStream {
 public:
  StreamJpeg() : IStream("mjpg") {}

  bool muxConfig(Object* vidtag) override;
  int AddData(IO& io, Packet& packet, base::uint64 arg) override;

  // Compatibility: writes and counts a packet without a header, and adds one with a big-endian
  // size. Recording does not call it.
  virtual int WriteData(IO& io, Packet& packet);
};

}  // namespace kestro::plugin::avi
