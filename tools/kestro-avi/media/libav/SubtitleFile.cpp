#include "media/libav/SubtitleFile.h"

#include <algorithm>

#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/libav/OpenFormat.h"
#include "media/libav/PacketTimes.h"
#include "media/libav/SubtitleDecoder.h"

namespace kestro::tool {

namespace {

// Lets libavformat read from memory.
class MemoryReader {
 public:
  explicit MemoryReader(std::string const& content) : _content(content) {
    constexpr int kBuffer = 4096;
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
    _context = avio_alloc_context(buffer, kBuffer, 0, this, Read, nullptr, nullptr);
    if (buffer == nullptr || _context == nullptr) throw std::bad_alloc();
  }
  ~MemoryReader() {
    av_freep(&_context->buffer);
    avio_context_free(&_context);
  }
  MemoryReader(MemoryReader const&) = delete;
  MemoryReader& operator=(MemoryReader const&) = delete;

  AVIOContext* Context() const { return _context; }

 private:
  static int Read(void* self, std::uint8_t* to, int most) {
    auto& reader = *static_cast<MemoryReader*>(self);
    auto const size = std::min(static_cast<std::size_t>(most), reader._content.size() - reader._at);
    if (size == 0) return AVERROR_EOF;
    std::copy_n(reader._content.data() + reader._at, size, to);
    reader._at += size;
    return static_cast<int>(size);
  }

  std::string const& _content;
  std::size_t _at = 0;
  AVIOContext* _context;
};

}  // namespace

bool IsSubtitleFile(std::string const& path) {
  std::string const extension = Extension(path);
  for (char const* known : {".srt", ".vtt", ".ass", ".ssa"})
    if (extension == known) return true;
  return false;
}

static std::vector<Cue> ReadCues(AVFormatContext& format, int stream, SubtitleDecoder& decoder,
                                 bool (*interrupted)()) {
  std::vector<Cue> cues;
  PacketPtr const packet(av_packet_alloc());
  while (!interrupted() && av_read_frame(&format, packet.get()) >= 0) {
    DropWildTimes(*packet, format.streams[packet->stream_index]->time_base);
    Cue cue;
    if (packet->stream_index == stream && decoder.Decode(*packet, cue))
      cues.push_back(std::move(cue));
    av_packet_unref(packet.get());
  }
  return cues;
}

std::vector<Cue> ParseSubtitles(std::string const& path, std::string const& content,
                                unsigned& damaged) {
  MemoryReader reader(content);
  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr) throw std::bad_alloc();
  context->pb = reader.Context();
  int const failed = avformat_open_input(&context, path.c_str(), nullptr, nullptr);
  FormatPtr const format(context);
  if (failed < 0) throw Error(kUnusable, path + ": has an unknown format");
  if (format->nb_streams != 1 || !SubtitleDecoder::Supports(*format->streams[0]))
    throw Error(kUnusable, path + ": is not text in a known format");
  SubtitleDecoder decoder(*format->streams[0], "");
  auto cues = ReadCues(*format, 0, decoder, [] { return false; });
  damaged = decoder.Damaged();
  return cues;
}

std::vector<Cue> ReadSubtitles(std::string const& path, int stream, SubtitleDecoder& decoder,
                               bool (*interrupted)()) {
  Patience patience(interrupted);
  FormatPtr const format = OpenFormat(path, {}, patience);
  for (unsigned i = 0; i < format->nb_streams; ++i)
    if (static_cast<int>(i) != stream) format->streams[i]->discard = AVDISCARD_ALL;
  return ReadCues(*format, stream, decoder, interrupted);
}

}  // namespace kestro::tool
