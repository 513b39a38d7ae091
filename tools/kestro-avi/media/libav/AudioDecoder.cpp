#include "media/libav/AudioDecoder.h"

#include "cli/Errors.h"

namespace kestro::tool {

AudioDecoder::AudioDecoder(AVStream const& stream, Sink sink)
    : _frame(av_frame_alloc()),
      _rate(stream.codecpar->sample_rate),
      _channels(stream.codecpar->ch_layout.nb_channels),
      _sink(std::move(sink)) {
  AVCodec const* codec = avcodec_find_decoder(stream.codecpar->codec_id);
  _codec.reset(avcodec_alloc_context3(codec));
  if (codec == nullptr || avcodec_parameters_to_context(_codec.get(), stream.codecpar) < 0)
    throw Error(kUnusable, std::string("no decoder for the audio codec ") +
                               avcodec_get_name(stream.codecpar->codec_id));
  _codec->pkt_timebase = stream.time_base;
  if (int const failed = avcodec_open2(_codec.get(), codec, nullptr); failed < 0)
    throw Error(kUnusable, std::string("the decoder ") + codec->name + ": " + LibavError(failed));
}

void AudioDecoder::Decode(AVPacket const* packet) {
  int const sent = avcodec_send_packet(_codec.get(), packet);
  bool damaged = sent < 0 && sent != AVERROR_EOF;
  for (;;) {
    int const got = avcodec_receive_frame(_codec.get(), _frame.get());
    if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) break;
    if (got < 0) {
      damaged = true;
      break;
    }
    Convert(*_frame);
    av_frame_unref(_frame.get());
  }
  if (damaged) ++_damaged;
}

// Creates the converter for the frame's format. Returns false if it cannot be converted.
bool AudioDecoder::Prepare(AVFrame const& frame) {
  if (_swr && frame.format == _swrFormat && frame.sample_rate == _swrRate &&
      av_channel_layout_compare(&frame.ch_layout, &_layout) == 0)
    return true;
  AVChannelLayout out{};
  // With the same channel count, keep the layout: nothing is mixed.
  if (frame.ch_layout.nb_channels != _channels)
    av_channel_layout_default(&out, _channels);
  else if (av_channel_layout_copy(&out, &frame.ch_layout) < 0)
    return false;
  SwrContext* swr = nullptr;
  auto* in = const_cast<AVChannelLayout*>(&frame.ch_layout);  // the function copies it
  int const made =
      swr_alloc_set_opts2(&swr, &out, AV_SAMPLE_FMT_S16, _rate, in,
                          static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
  av_channel_layout_uninit(&out);
  _swr.reset(swr);
  if (made < 0 || swr_init(swr) < 0) {
    _swr.reset();
    return false;
  }
  _swrFormat = frame.format;
  _swrRate = frame.sample_rate;
  return av_channel_layout_copy(&_layout, &frame.ch_layout) >= 0;
}

void AudioDecoder::Convert(AVFrame const& frame) {
  auto const channels = static_cast<std::size_t>(_channels);
  if (frame.nb_samples <= 0) return;
  if (frame.format == AV_SAMPLE_FMT_S16 && frame.sample_rate == _rate &&
      frame.ch_layout.nb_channels == _channels) {
    auto const* data = reinterpret_cast<std::int16_t const*>(frame.data[0]);
    _sink(frame.pts, Samples(data, data + static_cast<std::size_t>(frame.nb_samples) * channels));
    return;
  }
  if (!Prepare(frame)) {
    ++_damaged;
    return;
  }
  int const room = swr_get_out_samples(_swr.get(), frame.nb_samples);
  if (room <= 0) return;
  Samples samples(static_cast<std::size_t>(room) * channels);
  auto* out = reinterpret_cast<std::uint8_t*>(samples.data());
  int const n =
      swr_convert(_swr.get(), &out, room, const_cast<std::uint8_t const**>(frame.extended_data),
                  frame.nb_samples);
  samples.resize(static_cast<std::size_t>(n < 0 ? 0 : n) * channels);
  if (n > 0) _sink(frame.pts, std::move(samples));
}

}  // namespace kestro::tool
