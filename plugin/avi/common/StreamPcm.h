// Uncompressed sound.
#pragma once

#include "common/IStream.h"

namespace kestro::plugin::avi {

// Each packet is one chunk; the header counts samples of all channels together. The media must have
// "rate", "channel", "width", "depth" and "samples".
class StreamPcm : public IStream {
 public:
  StreamPcm() : IStream("pcm") {}

  bool muxConfig(Object* vidtag) override;
  bool muxUpdate() override;

 protected:
  char const* ChunkSuffix() const override { return "wb"; }
  bool KeyFlags() const override { return false; }
  unsigned Units(unsigned size) const override { return _blockAlign == 0 ? 0 : size / _blockAlign; }

 private:
  unsigned _blockAlign = 0;  // bytes of a sample of all channels
};

}  // namespace kestro::plugin::avi
