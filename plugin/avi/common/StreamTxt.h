// Text.
#pragma once

#include "common/IChunkStream.h"

namespace kestro::plugin::avi {

// Each packet is one chunk. The index entry's size counts the padding; the largest payload decides
// the header's suggested buffer size.
class StreamTxt : public IChunkStream {
 public:
  StreamTxt() : IChunkStream("txt") {}

  bool muxConfig(Object* vidtag) override;
  bool muxUpdate() override;
  int WriteData(IO& io, Packet& packet) override;

  bool demuxConfig(Object* tags) override;
  bool SetDurPerFrame() override;
  Packet* GetPacket(IO& io, int64 length) override;  // its flags are exactly the key flag

 protected:
  char const* ChunkSuffix() const override { return "tx"; }
  bool KeyFlags() const override { return false; }

 private:
  unsigned _maxPayload = 0;
};

}  // namespace kestro::plugin::avi
