// libavformat's AVI muxer on the same packets, set up to do as little as possible: packets refer to
// the mix's memory and are written in order without its interleaving queue, with large buffers and
// without a flush after each packet.
extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

#include <optional>

#include "LavfMuxer.h"
#include "Recorder.h"

namespace kestro::bench {

namespace {

constexpr int kBuffer = 512 << 10;

int WriteTo(void* opaque, std::uint8_t* data, int size) {
  auto& io = *static_cast<base::IO*>(opaque);
  auto const bytes = static_cast<unsigned>(size);
  return io.Write(data, bytes) == bytes ? size : AVERROR(EIO);
}

std::int64_t Seek(void* opaque, std::int64_t offset, int whence) {
  auto& io = *static_cast<base::IO*>(opaque);
  if (whence == AVSEEK_SIZE) return io.Size();
  return io.Seek(offset, whence) ? io.Tell() : AVERROR(EIO);
}

// One AVPacket for each unit of the mix, created once.
class Packets {
 public:
  explicit Packets(Mix const& mix) {
    for (Mix::Unit const& unit : mix.Units()) {
      AVPacket* packet = av_packet_alloc();
      packet->data = unit.Data();
      packet->size = unit.Size();
      packet->stream_index = unit.video ? 0 : 1;
      packet->duration = unit.video ? 1 : Mix::kSamples;
      if (unit.packet->IsKey() || !unit.video) packet->flags = AV_PKT_FLAG_KEY;
      _packets.push_back(packet);
    }
  }
  ~Packets() {
    for (AVPacket* packet : _packets) av_packet_free(&packet);
  }
  Packets(Packets const&) = delete;
  AVPacket* operator[](std::size_t index) const { return _packets[index]; }

 private:
  std::vector<AVPacket*> _packets;
};

class Muxer {
 public:
  Muxer() {
    av_log_set_level(AV_LOG_ERROR);
    Require(avformat_alloc_output_context2(&_context, nullptr, "avi", nullptr) >= 0, "no avi");
    _context->flush_packets = 0;
    AVStream* video = AddStream(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264, {1, Mix::kFps});
    video->codecpar->width = 1920;
    video->codecpar->height = 1080;
    video->avg_frame_rate = {Mix::kFps, 1};
    AVStream* audio = AddStream(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_S16LE, {1, Mix::kRate});
    audio->codecpar->sample_rate = Mix::kRate;
    av_channel_layout_default(&audio->codecpar->ch_layout, 2);
    audio->codecpar->bits_per_coded_sample = 16;
    audio->codecpar->block_align = 4;
    audio->codecpar->bit_rate = std::int64_t{32} * Mix::kRate;
  }
  ~Muxer() { avformat_free_context(_context); }
  Muxer(Muxer const&) = delete;

  void Start(base::IO& io) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
    _context->pb = avio_alloc_context(buffer, kBuffer, 1, &io, nullptr, WriteTo, Seek);
    Start();
  }
  void Start(std::string const& path) {
    _owned = true;
    Require(avio_open(&_context->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0, "no file");
    Start();
  }
  void Write(AVPacket* packet, std::int64_t number) {
    packet->pts = packet->dts = number * packet->duration;
    Require(av_write_frame(_context, packet) >= 0, "av_write_frame failed");
  }
  void Close() {
    Require(av_write_trailer(_context) >= 0, "no trailer");
    if (_owned) {
      Require(avio_closep(&_context->pb) >= 0, "close failed");
    } else {
      av_freep(&_context->pb->buffer);
      avio_context_free(&_context->pb);
    }
  }

 private:
  void Start() {
    Require(avformat_write_header(_context, nullptr) >= 0, "no header");
    auto const ticks = [this](unsigned stream) { return _context->streams[stream]->time_base.den; };
    Require(ticks(0) == Mix::kFps && ticks(1) == Mix::kRate, "unexpected time base");
  }
  AVStream* AddStream(AVMediaType type, AVCodecID codec, AVRational timeBase) {
    AVStream* stream = avformat_new_stream(_context, nullptr);
    stream->codecpar->codec_type = type;
    stream->codecpar->codec_id = codec;
    stream->time_base = timeBase;
    return stream;
  }

  AVFormatContext* _context = nullptr;
  bool _owned = false;  // libavformat opened the file
};

}  // namespace

Contender LavfMuxer(Mix const& mix, std::int64_t packets, Target const& target) {
  auto const made = std::make_shared<std::optional<Packets>>();
  return {"libavformat", [&mix, packets, target, made](Stopwatch& watch) {
            if (!*made) made->emplace(mix);
            target.Clear();
            NullIO null;
            Muxer muxer;
            watch.Start();
            target.path.empty() ? muxer.Start(null) : muxer.Start(target.path);
            mix.Play(packets, [&](Mix::Unit const&, std::size_t index, std::int64_t number) {
              muxer.Write((**made)[index], number);
            });
            muxer.Close();
            watch.Stop();
            target.Clear();
          }};
}

void LavfRecord(Mix const& mix, base::IO& io, std::function<void(Feed const&)> const& play) {
  Packets const packets(mix);
  Muxer muxer;
  muxer.Start(io);
  play([&](Mix::Unit const&, std::size_t index, std::int64_t number) {
    muxer.Write(packets[index], number);
  });
  muxer.Close();
}

}  // namespace kestro::bench
