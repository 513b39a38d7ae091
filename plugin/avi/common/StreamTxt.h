// Text.
#pragma once

#include "common/IChunkStream.h"

namespace kestro::plugin::avi {

// Each packet is one chunk. The size in the index entry includes the padding; the largest payload
// becomes the suggested buffer size in the header.
class StreamTxt : public IChunkStream {
 public:
  StreamTxt() : IChunkStream("txt") {}

  bool muxConfig(Object* vidtag) override;
  bool muxUpdate() override;
  int WriteData(IO& io, Packet& packet) override;

  bool demuxConfig(Object* tags) override;
  bool SetDurPerFrame() override;
  Packet* GetPacket(IO& io, int64 length) override;  // with the key flag and no other

 protected:
  char const* ChunkSuffix() const override { return "tx"; }
  bool KeyFlags() const override { return false; }

 private:
  unsigned _maxPayload = 0;
};

}  // namespace kestro::plugin::avi
