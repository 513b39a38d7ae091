// libavformat's AVI demuxer on the same files, with default settings: its parser reads the start of
// each frame. Streams are not probed, so that opening reads only headers and index.
extern "C" {
#include <libavformat/avformat.h>
}

#include "DemuxBench.h"

namespace kestro::bench {

namespace {

class Demuxer {
 public:
  // Quiet: parsers complain about random bytes.
  Demuxer() : _packet(av_packet_alloc()) { av_log_set_level(AV_LOG_QUIET); }
  ~Demuxer() {
    av_packet_free(&_packet);
    avformat_close_input(&_context);
    if (_io != nullptr) av_freep(&_io->buffer);
    avio_context_free(&_io);
  }
  Demuxer(Demuxer const&) = delete;
  Demuxer& operator=(Demuxer const&) = delete;

  void Open(std::string const& path) {
    Require(avformat_open_input(&_context, path.c_str(), nullptr, nullptr) >= 0, "no avi");
    Require(_context->nb_streams == 2, "tracks are missing");
  }
  void Open(base::IO& io) {
    constexpr int kBuffer = 32768;  // as for files
    _io = avio_alloc_context(static_cast<unsigned char*>(av_malloc(kBuffer)), kBuffer, 0, &io, Read,
                             nullptr, Move);
    _context = avformat_alloc_context();
    _context->pb = _io;
    Open(std::string());
  }
  // False at the end.
  bool Next() {
    int const result = av_read_frame(_context, _packet);
    Require(result >= 0 || result == AVERROR_EOF, "av_read_frame failed");
    av_packet_unref(_packet);
    return result >= 0;
  }
  void Seek(int ms) {
    auto const time =
        av_rescale_q_rnd(ms, {1, 1000}, _context->streams[0]->time_base, AV_ROUND_DOWN);
    Require(av_seek_frame(_context, 0, time, AVSEEK_FLAG_BACKWARD) >= 0, "av_seek_frame failed");
  }

 private:
  static int Read(void* io, std::uint8_t* data, int size) {
    auto const got = static_cast<base::IO*>(io)->Read(data, static_cast<unsigned>(size));
    return got == base::IO::kFailed ? AVERROR(EIO) : got == 0 ? AVERROR_EOF : static_cast<int>(got);
  }
  static std::int64_t Move(void* opaque, std::int64_t offset, int whence) {
    auto& io = *static_cast<base::IO*>(opaque);
    if (whence == AVSEEK_SIZE) return io.Size();
    return io.Seek(offset, whence & 3) ? io.Tell() : -1;
  }

  AVIOContext* _io = nullptr;
  AVFormatContext* _context = nullptr;
  AVPacket* _packet;
};

}  // namespace

Contender LavfReader(SharedRecording const& file) {
  return {"libavformat", [file](Stopwatch& watch) {
            Demuxer demuxer;
            demuxer.Open(file->Path());
            std::int64_t count = 0;
            watch.Start();
            while (demuxer.Next()) ++count;
            watch.Stop();
            Require(count == file->Packets(), "libavformat lost packets");
          }};
}

Contender LavfOpener(SharedRecording const& file) {
  return {"libavformat", [file](Stopwatch& watch) {
            Demuxer demuxer;
            watch.Start();
            demuxer.Open(file->Path());
            watch.Stop();
          }};
}

Contender LavfOpener(SharedRecording const& file, NewIO const& open) {
  return {"libavformat", [file, open](Stopwatch& watch) {
            auto const io = open(file->Path());
            Demuxer demuxer;
            watch.UseWallTime();
            watch.Start();
            demuxer.Open(*io);
            watch.Stop();
          }};
}

Contender LavfSeeker(SharedRecording const& file, std::vector<int> const& times) {
  return {"libavformat", [file, times](Stopwatch& watch) {
            Demuxer demuxer;
            demuxer.Open(file->Path());
            watch.Start();
            for (int const ms : times) {
              demuxer.Seek(ms);
              Require(demuxer.Next(), "a seek of libavformat goes to the end");
            }
            watch.Stop();
          }};
}

}  // namespace kestro::bench
