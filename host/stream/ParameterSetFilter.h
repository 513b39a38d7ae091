// Puts parameter sets back in front of key frames.
#pragma once

#include "stream/ISink.h"

namespace kestro::stream {

// Stands between a demuxer and a muxer or decoder. A demuxer blanks what precedes the first slice
// of a frame; this filter drops the zeros and puts the parameter sets of the media's Extra there
// for key packets, in the packet's own memory where there is room for them. Other packets, and
// tracks without parameter sets, pass as they are.
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
  bool Ready() const override;  // when what follows is ready too
  bool ReceivePacket(Packet& packet, void* context) override;

 private:
  IPort* OutputOf(IPort const* input) const;
};

}  // namespace kestro::stream
