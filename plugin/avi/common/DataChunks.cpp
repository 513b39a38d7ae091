#include "common/DataChunks.h"

#include <vector>

namespace kestro::plugin::avi {

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
  if (_extra == 0) return;
  std::vector<unsigned char> const zeros(_extra);
  io.Write(zeros.data(), _extra);
}

void cjunk::parse(IO& io) {
  int64 const end = io.Tell() + _size;
  if (end < io.Size()) io.Seek(end, IO::kBegin);
}

}  // namespace kestro::plugin::avi
