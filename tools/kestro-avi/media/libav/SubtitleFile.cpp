#include "media/libav/SubtitleFile.h"

#include <algorithm>
#include <cstring>

#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/libav/SubtitleDecoder.h"

namespace kestro::tool {

namespace {

// Lets libavformat read from memory.
class MemoryReader {
 public:
  explicit MemoryReader(std::string const& content) : _content(content) {
    constexpr int kBuffer = 4096;
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
    _context = avio_alloc_context(buffer, kBuffer, 0, this, Read, nullptr, Seek);
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
    std::memcpy(to, reader._content.data() + reader._at, size);
    reader._at += size;
    return static_cast<int>(size);
  }
  static std::int64_t Seek(void* self, std::int64_t to, int from) {
    auto& reader = *static_cast<MemoryReader*>(self);
    auto const size = static_cast<std::int64_t>(reader._content.size());
    if (from == AVSEEK_SIZE) return size;
    if (from == SEEK_CUR) to += static_cast<std::int64_t>(reader._at);
    if (from == SEEK_END) to += size;
    if (to < 0 || to > size) return AVERROR(EINVAL);
    reader._at = static_cast<std::size_t>(to);
    return to;
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
  std::vector<Cue> cues;
  PacketPtr const packet(av_packet_alloc());
  while (av_read_frame(format.get(), packet.get()) >= 0) {
    Cue cue;
    if (decoder.Decode(*packet, cue)) cues.push_back(std::move(cue));
    av_packet_unref(packet.get());
  }
  damaged = decoder.Damaged();
  return cues;
}

}  // namespace kestro::tool
