// Inserts parameter sets before key frames.
#pragma once

#include "stream/ISink.h"

namespace kestro::stream {

// Use it between a demuxer and a muxer or decoder. A demuxer blanks what precedes the first slice
// of a frame. In key packets, this filter replaces the zeros with the parameter sets of the media's
// Extra, in the packet's own memory if there is room. Other packets, and tracks without parameter
// sets, pass unchanged.
//
//   auto [in, out] = filter.AddTrack();
//   IPort::Link(*demuxer->AddOutput("h264"), *in);
//   IPort::Link(*out, *muxer->AddInput());
class KESTRO_API ParameterSetFilter : public ISink {
 public:
  ParameterSetFilter() : ISink("ParameterSetFilter") {}
  ~ParameterSetFilter() override;

  struct Track {
    IPort* input;
    IPort* output;
  };
  Track AddTrack(char const* codecs = "*");  // before the first packet

  bool AcceptMedia(IPort& input, IMedia* media) override;
  bool Ready() const override;  // if the elements after it are ready, too
  bool ReceivePacket(Packet& packet, void* context) override;

 private:
  IPort* OutputOf(IPort const* input) const;
};

}  // namespace kestro::stream
