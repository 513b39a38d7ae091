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
  if (packet == nullptr && _swr) Resample(AV_NOPTS_VALUE, 0, nullptr, 0);
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
  // Only the ratio of the rates counts; the library multiplies them.
  constexpr int kMost = 1 << 20;
  int outRate = 0, inRate = 0;
  av_reduce(&outRate, &inRate, _rate * _speed.num, frame.sample_rate * _speed.den, kMost);
  int const made =
      swr_alloc_set_opts2(&swr, &out, AV_SAMPLE_FMT_S16, outRate, in,
                          static_cast<AVSampleFormat>(frame.format), inRate, 0, nullptr);
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
  if (frame.nb_samples <= 0 || frame.sample_rate <= 0) return;
  std::int64_t const duration_ns = av_rescale(frame.nb_samples, 1000000000, frame.sample_rate);
  bool const asIs = frame.format == AV_SAMPLE_FMT_S16 && frame.sample_rate == _rate &&
                    frame.ch_layout.nb_channels == _channels && _speed.num == _speed.den;
  if (asIs) {
    auto const* data = reinterpret_cast<std::int16_t const*>(frame.data[0]);
    auto const size =
        static_cast<std::size_t>(frame.nb_samples) * static_cast<std::size_t>(_channels);
    _sink(frame.pts, duration_ns, Samples(data, data + size));
  } else if (Prepare(frame)) {
    Resample(frame.pts, duration_ns, const_cast<std::uint8_t const**>(frame.extended_data),
             frame.nb_samples);
  } else {
    ++_damaged;
  }
}

// Without data: what the converter still holds.
void AudioDecoder::Resample(std::int64_t pts, std::int64_t duration_ns, std::uint8_t const** data,
                            int count) {
  auto const channels = static_cast<std::size_t>(_channels);
  int const room = swr_get_out_samples(_swr.get(), count);
  if (room <= 0) return;
  Samples samples(static_cast<std::size_t>(room) * channels);
  auto* out = reinterpret_cast<std::uint8_t*>(samples.data());
  int const n = swr_convert(_swr.get(), &out, room, data, count);
  samples.resize(static_cast<std::size_t>(n < 0 ? 0 : n) * channels);
  if (n > 0) _sink(pts, duration_ns, std::move(samples));
}

}  // namespace kestro::tool
