#include "media/libav/StreamRate.h"

#include <cmath>

#include "media/FrameRate.h"

namespace kestro::tool {

using base::Fraction;

// Corrects a rate by the times of all frames, if the container has them. Missing frames do not
// count, and neither does a difference that adds up to less than 20 ms.
static Fraction MeasuredRate(AVStream& stream, Fraction const& rate) {
  int const entries = avformat_index_get_entries_count(&stream);
  if (entries < 100 || entries != stream.nb_frames || !rate.Positive()) return rate;
  double const frame = static_cast<double>(rate.den) / static_cast<double>(rate.num);
  double const tick = av_q2d(stream.time_base);
  double time = 0;
  int frames = 0;
  for (int i = 1; i < entries; ++i) {
    double const interval =
        tick * static_cast<double>(avformat_index_get_entry(&stream, i)->timestamp -
                                   avformat_index_get_entry(&stream, i - 1)->timestamp);
    if (std::abs(interval - frame) * 2 > frame) continue;
    time += interval;
    ++frames;
  }
  double const off = std::abs(time - frames * frame);
  bool const uneven = frames < entries - 1 - entries / 20 || off > time * 0.005;
  if (uneven || off < 0.02) return rate;
  return {std::llround(frames / time * 10000), 10000};
}

Fraction ContainerRate(AVFormatContext& format, AVStream& stream) {
  AVRational rate = av_guess_frame_rate(&format, &stream, nullptr);
  AVRational const average = stream.avg_frame_rate;
  // The guess is the finest grid that all times fit, which is far too high when times jitter.
  if (average.num > 0 && average.den > 0 && av_q2d(rate) > 1.5 * av_q2d(average)) rate = average;
  return MeasuredRate(stream, UsualRate(Fraction(rate.num, rate.den)));
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
