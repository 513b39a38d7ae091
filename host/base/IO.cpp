#include "base/IO.h"

#include <algorithm>
#include <cstring>

#include "base/LittleEndian.h"

namespace kestro::base {

bool SeekTarget(IO& io, int64 offset, int whence, int64& target) {
  int64 base = 0;
  if (whence == IO::kCurrent)
    base = io.Tell();
  else if (whence == IO::kEnd)
    base = io.Size();
  else if (whence != IO::kBegin)
    return false;
  int64 sum;
  if (base < 0 || __builtin_add_overflow(base, offset, &sum) || sum < 0) return false;
  target = sum;
  return true;
}

unsigned IOIntReader::Read32() {
  unsigned value = 0;
  Read32(value);
  return value;
}

bool IOIntReader::Read32(unsigned& value) {
  unsigned char b[4];
  if (_io.Read(b, 4) != 4) return false;
  value = Load32(b);
  return true;
}

bool IOIntReader::Read16(unsigned short& value) {
  unsigned char b[2];
  if (_io.Read(b, 2) != 2) return false;
  value = static_cast<unsigned short>(b[0] | b[1] << 8);
  return true;
}

unsigned IOIntWriter::Write32(unsigned value) {
  unsigned char b[4];
  Store32(b, value);
  return _io.Write(b, 4);
}

unsigned IOIntWriter::Write16(int value) {
  unsigned char const b[2] = {static_cast<unsigned char>(value),
                              static_cast<unsigned char>(value >> 8)};
  return _io.Write(b, 2);
}

unsigned IOIntWriter::Write32(unsigned value, int64 offset, Position whence) {
  int64 const before = _io.Tell();
  unsigned const written = _io.Seek(offset, whence) ? Write32(value) : 0;
  _io.Seek(before, kBegin);
  return written;
}

IOBlockReader::IOBlockReader(IO& io, int blockSize)
    : IOFilter("IOBlockReader", io), _block(std::max(blockSize, 1)), _position(io.Tell()) {}

bool IOBlockReader::Seek(int64 offset, int whence) {
  return SeekTarget(*this, offset, whence, _position);
}

unsigned IOBlockReader::Read(void* data, unsigned size) {
  auto* out = static_cast<unsigned char*>(data);
  unsigned done = 0;
  while (done < size) {
    if (_position < _blockStart || _position >= _blockStart + _blockFill) {
      unsigned const got = _io.Seek(_position, kBegin)
                               ? _io.Read(_block.data(), static_cast<unsigned>(_block.size()))
                               : kFailed;
      if (got == kFailed) {
        _blockFill = 0;
        return done > 0 ? done : kFailed;
      }
      _blockStart = _position;
      _blockFill = got;
      if (got == 0) break;
    }
    auto const at = static_cast<unsigned>(_position - _blockStart);
    unsigned const part = std::min(size - done, _blockFill - at);
    std::memcpy(out + done, _block.data() + at, part);
    done += part;
    _position += part;
  }
  return done;
}

IOBuffer::IOBuffer(int size, bool zero) : IO("IOBuffer"), _data(nullptr, std::free) {
  auto const bytes = static_cast<std::size_t>(std::max(size, 0));
  // Memory from calloc costs nothing until it is used.
  _data.reset(static_cast<unsigned char*>(zero ? std::calloc(bytes, 1) : std::malloc(bytes)));
  _max = _data != nullptr ? static_cast<int64>(bytes) : 0;
}

bool IOBuffer::Seek(int64 offset, int whence) {
  return SeekTarget(*this, offset, whence, _position);
}

unsigned IOBuffer::Read(void* data, unsigned size) {
  if (_position >= _size) return 0;
  auto const part = static_cast<unsigned>(std::min<int64>(size, _size - _position));
  std::memcpy(data, _data.get() + _position, part);
  _position += part;
  return part;
}

unsigned IOBuffer::Write(void const* data, unsigned size) {
  if (size == 0 || _position >= _max) return 0;
  auto const part = static_cast<unsigned>(std::min<int64>(size, _max - _position));
  std::memcpy(_data.get() + _position, data, part);
  _position += part;
  _size = std::max(_size, _position);
  return part;
}

bool IOBuffer::Truncate(int64 size) {
  if (size < 0 || size > _size) return false;
  _size = size;
  return true;
}

unsigned IOCallBack::Read(void* data, unsigned size) {
  unsigned const got = _io.Read(data, size);
  if (_notify != nullptr && got != kFailed) _notify(_id, data, got);
  return got;
}

unsigned IOCallBack::Write(void const* data, unsigned size) {
  unsigned const written = _io.Write(data, size);
  if (_notify != nullptr) _notify(_id, const_cast<void*>(data), written);
  return written;
}

}  // namespace kestro::base
