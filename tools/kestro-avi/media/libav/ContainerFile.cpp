#include "media/libav/ContainerFile.h"

#include <cstring>

#include "cli/Errors.h"
#include "media/libav/Padded.h"

namespace kestro::tool {

AVCodecID CodecOf(avi::AviTrack const& track) {
  if (track.codec == "h264") return AV_CODEC_ID_H264;
  if (track.codec == "hevc") return AV_CODEC_ID_HEVC;
  if (track.codec == "mjpeg") return AV_CODEC_ID_MJPEG;
  if (track.codec != "pcm" || track.channels == 0 || track.sampleRate == 0) return AV_CODEC_ID_NONE;
  switch (track.bits) {
    case 8:
      return AV_CODEC_ID_PCM_U8;
    case 16:
      return AV_CODEC_ID_PCM_S16LE;
    case 24:
      return AV_CODEC_ID_PCM_S24LE;
    case 32:
      return AV_CODEC_ID_PCM_S32LE;
    default:
      return AV_CODEC_ID_NONE;
  }
}

// Whether a format can hold a codec so that readers find it again.
static bool Accepts(AVOutputFormat const& format, AVCodecID codec) {
  int const known = avformat_query_codec(&format, codec, FF_COMPLIANCE_NORMAL);
  if (known >= 0) return known != 0;
  // The format has no list of codecs. Most of these formats write any data without an error.
  std::string const name = format.name;
  if (name == "mxf" || name == "mxf_opatom" || name == "swf") return true;  // they check the codec
  bool const stream = name == "mpegts" || name == "mpeg" || name == "vob" || name == "svcd";
  return stream && (codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC);
}

bool ContainerFile::IsContainer(std::string const& path) {
  return av_guess_format(nullptr, path.c_str(), nullptr) != nullptr;
}

void ContainerFile::Require(int result) const {
  if (result < 0) throw Error(kIo, _new.Path() + ": " + LibavError(result));
}

ContainerFile::ContainerFile(std::string const& path, std::vector<ContainerTrack> const& tracks)
    : _new(path) {
  AVFormatContext* made = nullptr;
  Require(avformat_alloc_output_context2(&made, av_guess_format(nullptr, path.c_str(), nullptr),
                                         nullptr, path.c_str()));
  _format.reset(made);
  if ((_format->oformat->flags & AVFMT_NOFILE) != 0)
    throw Error(kUsage, path + ": unknown file name extension");
  for (ContainerTrack const& track : tracks) AddTrack(track);
  Require(avio_open(&_format->pb, ("file:" + _new.Temporary()).c_str(), AVIO_FLAG_WRITE));
  int const headed = avformat_write_header(_format.get(), nullptr);
  if (headed < 0)
    throw Error(headed == AVERROR(EINVAL) ? kUnusable : kIo,
                path + ": " + _format->oformat->name +
                    " does not accept these tracks: " + LibavError(headed));
}

ContainerFile::~ContainerFile() {
  if (_format && _format->pb != nullptr) avio_closep(&_format->pb);
}

void ContainerFile::AddTrack(ContainerTrack const& from) {
  AVCodecID const codec = CodecOf(*from.track);
  if (!Accepts(*_format->oformat, codec))
    throw Error(kUnusable, _new.Path() + ": " + _format->oformat->name + " does not accept " +
                               avcodec_get_name(codec) + " (" + from.name + ")");
  AVStream* const stream = avformat_new_stream(_format.get(), nullptr);
  if (stream == nullptr) throw std::bad_alloc();
  stream->codecpar->codec_id = codec;
  SetParameters(*stream, from);
  _tracks.push_back(from);
  _units.push_back(stream->time_base);
}

void ContainerFile::SetParameters(AVStream& stream, ContainerTrack const& from) {
  AVCodecParameters& par = *stream.codecpar;
  avi::AviTrack const& track = *from.track;
  if (track.type == "audio") {
    par.codec_type = AVMEDIA_TYPE_AUDIO;
    par.sample_rate = static_cast<int>(track.sampleRate);
    av_channel_layout_default(&par.ch_layout, static_cast<int>(track.channels));
    par.bits_per_coded_sample = static_cast<int>(track.bits);
    par.block_align = static_cast<int>(track.channels * track.bits / 8);
    par.bit_rate = std::int64_t{par.sample_rate} * par.block_align * 8;
    stream.time_base = {1, par.sample_rate};
    return;
  }
  AVRational rate{0, 1};
  av_reduce(&rate.num, &rate.den, track.rate, track.scale, 1 << 30);
  if (rate.num <= 0 || rate.den <= 0)
    throw Error(kUnusable, _new.Path() + ": the AVI file has no frame rate (" + from.name + ")");
  par.codec_type = AVMEDIA_TYPE_VIDEO;
  par.width = static_cast<int>(track.width);
  par.height = static_cast<int>(track.height);
  stream.avg_frame_rate = rate;
  stream.time_base = av_inv_q(rate);
  if (from.order == nullptr) return;
  Bytes const& sets = from.order->ParameterSets();
  if (sets.empty())
    throw Error(kUnusable, _new.Path() + ": no key frame with parameter sets (" + from.name + ")");
  par.video_delay = static_cast<int>(from.order->Delay());
  par.extradata =
      static_cast<std::uint8_t*>(av_mallocz(sets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (par.extradata == nullptr) throw std::bad_alloc();
  std::memcpy(par.extradata, sets.data(), sets.size());
  par.extradata_size = static_cast<int>(sets.size());
}

void ContainerFile::Write(std::size_t track, avi::Piece const& piece) {
  if (piece.size == 0) return;
  ContainerTrack const& from = _tracks[track];
  PacketPtr const packet = Padded(piece.data, piece.size);
  auto const position = static_cast<std::int64_t>(piece.position);
  packet->stream_index = static_cast<int>(track);
  packet->pts = packet->dts = position;
  packet->flags = AV_PKT_FLAG_KEY;
  packet->duration = 1;
  if (from.order != nullptr) {
    packet->pts = from.order->Shown(piece.position);
    packet->dts = position - from.order->Delay();
    if (!from.order->Key(piece.position)) packet->flags = 0;
  } else if (from.track->type == "audio") {
    packet->duration =
        static_cast<std::int64_t>(piece.size * 8 / from.track->bits / from.track->channels);
  }
  av_packet_rescale_ts(packet.get(), _units[track], _format->streams[track]->time_base);
  Require(av_interleaved_write_frame(_format.get(), packet.get()));
}

Written ContainerFile::Finish() {
  Require(av_write_trailer(_format.get()));
  Require(_format->pb->error);
  Require(avio_closep(&_format->pb));
  return {_new.Keep()};
}

}  // namespace kestro::tool
