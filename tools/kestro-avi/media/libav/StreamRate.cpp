#include "media/libav/StreamRate.h"

#include "media/FrameRate.h"

namespace kestro::tool {

using base::Fraction;

Fraction ContainerRate(AVFormatContext& format, AVStream& stream) {
  AVRational rate = av_guess_frame_rate(&format, &stream, nullptr);
  AVRational const average = stream.avg_frame_rate;
  // The guess is the finest grid that all times fit, which is far too high when times jitter.
  if (average.num > 0 && average.den > 0 && av_q2d(rate) > 1.5 * av_q2d(average)) rate = average;
  return UsualRate(Fraction(rate.num, rate.den));
}

Fraction StreamRate(AVCodecParameters const& parameters, AVPacket const& key) {
  AVCodec const* codec = avcodec_find_decoder(parameters.codec_id);
  CodecPtr decoder(avcodec_alloc_context3(codec));
  FramePtr frame(av_frame_alloc());
  if (codec == nullptr || avcodec_parameters_to_context(decoder.get(), &parameters) < 0) return {};
  decoder->framerate = {0, 1};  // libavformat sets its default
  decoder->thread_count = 1;
  if (avcodec_open2(decoder.get(), codec, nullptr) < 0) return {};
  avcodec_send_packet(decoder.get(), &key);
  avcodec_send_packet(decoder.get(), nullptr);
  avcodec_receive_frame(decoder.get(), frame.get());
  AVRational const rate = decoder->framerate;
  return rate.num > 0 && rate.den > 0 ? Fraction(rate.num, rate.den) : Fraction();
}

}  // namespace kestro::tool
