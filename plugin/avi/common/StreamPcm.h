// Uncompressed audio.
#pragma once

#include "common/IChunkStream.h"

namespace kestro::plugin::avi {

// Each packet is one chunk; the header counts sample frames. The media must have "rate", "channel",
// "width", "depth" and "samples"; reading sets them again. Every packet that is read is a key
// packet.
class StreamPcm : public IChunkStream {
 public:
  StreamPcm() : IChunkStream("pcm") {}

  bool muxConfig(Object* vidtag) override;
  bool muxUpdate() override;

  bool demuxConfig(Object* tags) override;
  bool SetDurPerFrame() override;
  Packet* GetPacket(IO& io, int64 length) override;
  void AddListChunk(ChunkParam& chunk) override;

 protected:
  char const* ChunkSuffix() const override { return "wb"; }
  bool KeyFlags() const override { return false; }
  unsigned Units(unsigned size) const override { return _blockAlign == 0 ? 0 : size / _blockAlign; }

 private:
  unsigned _blockAlign = 0;   // bytes of a sample frame
  unsigned _sampleBytes = 4;  // the header's value for it; of 16-bit stereo if it has none
};

}  // namespace kestro::plugin::avi
