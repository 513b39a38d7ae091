// Any sound that libavcodec decodes, as 16-bit samples of one rate and channel count.
#pragma once

#include <functional>

#include "media/libav/AudioBlocks.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

class AudioDecoder {
 public:
  // Called with each piece of sound; `pts` is in the stream's time base, or AV_NOPTS_VALUE.
  using Sink = std::function<void(std::int64_t pts, Samples samples)>;

  // Throws Error for a codec that has no decoder.
  AudioDecoder(AVStream const& stream, Sink sink);

  void Decode(AVPacket const* packet);  // null: what the decoder still holds
  unsigned Damaged() const { return _damaged; }

 private:
  void Convert(AVFrame const& frame);
  bool Prepare(AVFrame const& frame);

  CodecPtr _codec;
  FramePtr _frame;
  SwrPtr _swr;  // null while frames come as they are wanted
  int _rate, _channels;
  AVChannelLayout _layout{};  // what _swr was made for
  int _swrRate = 0, _swrFormat = AV_SAMPLE_FMT_NONE;
  Sink _sink;
  unsigned _damaged = 0;
};

}  // namespace kestro::tool
