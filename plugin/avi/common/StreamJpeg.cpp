#include "common/StreamJpeg.h"

#include <cstdio>

#include "common/VideoHeader.h"

namespace kestro::plugin::avi {

bool StreamJpeg::muxConfig(Object*) {
  Fraction rate;
  int width = 1920;
  int height = 1080;
  _media->Get("framerate", rate);
  if (!_media->Get("width", width) || !_media->Get("height", height)) return false;
  std::printf("\n*************config:%d,%d\n", width, height);
  _strl = NewVideoStrl("MJPG", rate.Whole(), width, height);
  if (_para->idx1WithTmpFile >= 1) _spillBatch = Batch(rate.Whole(), _para->idx1WithTmpFile);
  return _strl != nullptr;
}

int StreamJpeg::AddData(IO& io, Packet& packet, base::uint64) {
  if (AddChunk(packet, static_cast<base::uint64>(io.Tell()), 0) == 0) return 0;
  unsigned const written = io.Write(packet.Data(), static_cast<unsigned>(packet.Size()));
  if (written % 2 != 0) {
    io.Write("", 1);
    ++_list->back().size;
  }
  return static_cast<int>(written);
}

int StreamJpeg::WriteData(IO& io, Packet& packet) {
  auto const size = static_cast<unsigned>(packet.Size());
  unsigned const written = WriteChunk(io, __builtin_bswap32(size), packet);
  ++_count;
  _bytes += size;
  return static_cast<int>(written);
}

}  // namespace kestro::plugin::avi
