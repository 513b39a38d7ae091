#include "verify/Streams.h"

#include "base/LittleEndian.h"

namespace kestro::tool {

using base::Convert4;

unsigned Field32(avi::RiffReader& reader, avi::Chunk const& chunk, int64 at) {
  unsigned char bytes[4];
  bool const there =
      chunk.Payload() + at + 4 <= chunk.end && reader.Read(chunk.Payload() + at, bytes, 4) == 4;
  return there ? base::Load32(bytes) : 0;
}

std::vector<Stream> ReadStreams(avi::AviFile& avi) {
  std::vector<Stream> streams;
  for (avi::AviTrack const& track : avi.Tracks()) streams.push_back({&track});
  std::size_t lists = 0;
  for (avi::Chunk const& chunk : avi.Tree()) {
    if (chunk.type == Convert4("strl") && lists < streams.size()) streams[lists++].list = chunk;
    if (lists == 0 || chunk.offset >= streams[lists - 1].list.end) continue;
    Stream& stream = streams[lists - 1];
    if (chunk.id == Convert4("strh")) stream.header = chunk;
    if (chunk.id == Convert4("strf")) stream.format = chunk;
  }
  for (Stream& stream : streams) {
    stream.sampleSize = Field32(avi.Reader(), stream.header, 44);
    stream.blockAlign = Field32(avi.Reader(), stream.format, 12) & 0xFFFF;
  }
  return streams;
}

}  // namespace kestro::tool
