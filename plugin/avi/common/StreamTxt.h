// Text.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// Each packet is one chunk. The index entry's size counts the padding; the largest payload decides
// the header's suggested buffer size.
class StreamTxt : public IStream {
 public:
  StreamTxt() : IStream("txt") {}

  bool muxConfig(Object* vidtag) override;
  bool muxUpdate() override;

  bool demuxConfig(Object* tags) override;
  bool SetDurPerFrame() override;
  Packet* GetPacket(IO& io, int64 length) override;  // its flags are exactly the key flag

 protected:
  char const* ChunkSuffix() const override { return "tx"; }
  bool KeyFlags() const override { return false; }
  int WriteData(IO& io, Packet& packet) override;

 private:
  unsigned _maxPayload = 0;
};

}  // namespace kestro::plugin::avi
