// Decodes audio with libavcodec to 16-bit samples with a fixed rate and channel count.
#pragma once

#include <functional>

#include "media/libav/AudioBlocks.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

class AudioDecoder {
 public:
  // Called with each piece of audio; `pts` is in the stream's time base, or AV_NOPTS_VALUE.
  using Sink = std::function<void(std::int64_t pts, Samples samples)>;

  // Throws Error if there is no decoder.
  AudioDecoder(AVStream const& stream, Sink sink);

  void Decode(AVPacket const* packet);  // null: flush the decoder
  unsigned Damaged() const { return _damaged; }

 private:
  void Convert(AVFrame const& frame);
  bool Prepare(AVFrame const& frame);

  CodecPtr _codec;
  FramePtr _frame;
  SwrPtr _swr;  // null while frames need no conversion
  int _rate, _channels;
  AVChannelLayout _layout{};  // _swr was created for this input
  int _swrRate = 0, _swrFormat = AV_SAMPLE_FMT_NONE;
  Sink _sink;
  unsigned _damaged = 0;
};

}  // namespace kestro::tool
