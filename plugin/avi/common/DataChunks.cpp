#include "common/DataChunks.h"

#include <algorithm>

namespace kestro::plugin::avi {

void WriteZeros(IO& io, int64 count) {
  static unsigned char const zeros[4096] = {};
  for (; count > 0; count -= int64(sizeof zeros))
    io.Write(zeros, static_cast<unsigned>(std::min(count, int64(sizeof zeros))));
}

void BufferChunk::fill(IO& io) {
  if (buffer == nullptr) return;
  IList::fill(io);
  io.Write(buffer, length);
}

void BufferChunk::parse(IO& io) {
  if (buffer != nullptr) io.Read(buffer, length);
}

void cstrd::parse(IO& io) {
  dataPos = io.Tell();
  BufferChunk::parse(io);
}

void cjunk::AddSize(unsigned n) {
  _extra = n;
  _size = int64(length) + n;
}

void cjunk::fill(IO& io) {
  if (buffer == nullptr) return;
  BufferChunk::fill(io);
  WriteZeros(io, _extra);
}

void cjunk::parse(IO& io) {
  int64 const end = io.Tell() + _size;
  if (end < io.Size()) io.Seek(end, IO::kBegin);
}

}  // namespace kestro::plugin::avi
