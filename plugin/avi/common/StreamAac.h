// AAC audio: accepted, so that a file with it can be recorded, but not stored.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// It has a track number but no header list and no chunks. Applications add it last, so that the
// numbers of the other tracks match the order of their headers.
class StreamAac : public IStream {
 public:
  StreamAac() : IStream("mp4a") {}

  bool muxConfig(Object*) override { return true; }
  int AddChunk(Packet const&, base::uint64, int) override { return 0; }
  int AddData(IO&, Packet&, base::uint64) override { return 0; }
  Packet* GetPacket(IO&, int64) override { return nullptr; }
  bool MultiSamplePerChunk() override { return true; }
  int GetSamplesPerChunk() override { return 0; }
};

}  // namespace kestro::plugin::avi
