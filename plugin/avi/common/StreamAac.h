// AAC sound, accepted so that it does not fail a file, and not stored.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// Has a track number but no header list and no chunks: applications give it last, so that the other
// tracks' numbers are the positions of their headers.
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
