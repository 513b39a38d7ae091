// Decodes audio with libavcodec to 16-bit samples with a fixed rate and channel count.
#pragma once

#include <functional>

#include "base/Fraction.h"
#include "media/libav/AudioBlocks.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

class AudioDecoder {
 public:
  // Called with each piece of audio; `pts` is in the stream's time base, or AV_NOPTS_VALUE;
  // `duration_ns` is that of the piece before it was stretched.
  using Sink = std::function<void(std::int64_t pts, std::int64_t duration_ns, Samples samples)>;

  // Throws Error if there is no decoder.
  AudioDecoder(AVStream const& stream, Sink sink);

  // Set this before the first packet: the samples play in their original time multiplied by this.
  void Stretch(base::Fraction const& speed) { _speed = speed; }

  void Decode(AVPacket const* packet);  // null: flush the decoder
  unsigned Damaged() const { return _damaged; }

 private:
  void Convert(AVFrame const& frame);
  bool Prepare(AVFrame const& frame);
  void Resample(std::int64_t pts, std::int64_t duration_ns, std::uint8_t const** data, int count);

  CodecPtr _codec;
  FramePtr _frame;
  SwrPtr _swr;  // null while frames need no conversion
  int _rate, _channels;
  base::Fraction _speed{1, 1};
  AVChannelLayout _layout{};  // _swr was created for this input
  int _swrRate = 0, _swrFormat = AV_SAMPLE_FMT_NONE;
  Sink _sink;
  unsigned _damaged = 0;
};

}  // namespace kestro::tool
