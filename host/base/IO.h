// Byte streams.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "base/Object.h"

namespace kestro::base {

// An abstract, seekable byte stream. Positions and sizes are in bytes, 64-bit. Only one thread may
// use a stream at a time.
class KESTRO_API IO : public Object {
 public:
  enum Position { kBegin = 0, kCurrent = 1, kEnd = 2 };
  static constexpr unsigned kFailed = 0xFFFFFFFFu;  // returned by Read on failure

  using Object::Object;

  virtual int64 Size() = 0;  // -1 on failure
  virtual int64 Tell() = 0;
  // Any position from 0 on is allowed, even beyond the end. A negative position is refused.
  virtual bool Seek(int64 offset, int whence) = 0;
  // Returns the number of bytes read. It is less than requested at the end of the stream, or if
  // reading failed after these bytes; in that case the next read fails, too. It is 0 at or beyond
  // the end, and kFailed if reading failed before the first byte.
  virtual unsigned Read(void* data, unsigned size) = 0;
  // Returns the number of bytes written. It is less than requested only if the rest failed.
  virtual unsigned Write(void const* data, unsigned size) = 0;
  // Each class documents whether the data then survives a crash of the process or of the machine.
  [[nodiscard]] virtual bool Flush() { return true; }
  // Like Flush, but only enough if nothing was written beyond the size at the last Flush. It may
  // cost less.
  [[nodiscard]] virtual bool FlushData() { return Flush(); }
  // The underlying file descriptor, or -1 if there is none.
  virtual int Handle() { return -1; }

  // The end of the data that is known to be stored: the size minus what failed writes have lost.
  virtual int64 GoodEnd() { return Size(); }
  // Truncates or extends the stream; the position does not change. False if the stream cannot do
  // this.
  [[nodiscard]] virtual bool Truncate(int64) { return false; }
  // The system error number of the last failure, 0 if there was none.
  virtual int Error() { return 0; }
};

// Forwards everything to another IO, which it does not own.
class KESTRO_API IOFilter : public IO {
 public:
  IOFilter(char const* name, IO& io) : IO(name), _io(io) {}
  using IO::Get;
  using IO::Set;
  bool Set(char const* name, void* value, std::type_info const* type) override {
    return _io.Set(name, value, type);
  }
  bool Get(char const* name, void* value, std::type_info const* type) override {
    return _io.Get(name, value, type);
  }
  int64 Size() override { return _io.Size(); }
  int64 Tell() override { return _io.Tell(); }
  bool Seek(int64 offset, int whence) override { return _io.Seek(offset, whence); }
  unsigned Read(void* data, unsigned size) override { return _io.Read(data, size); }
  unsigned Write(void const* data, unsigned size) override { return _io.Write(data, size); }
  bool Flush() override { return _io.Flush(); }
  bool FlushData() override { return _io.FlushData(); }
  int Handle() override { return _io.Handle(); }
  int64 GoodEnd() override { return _io.GoodEnd(); }
  bool Truncate(int64 size) override { return _io.Truncate(size); }
  int Error() override { return _io.Error(); }

 protected:
  IO& _io;
};

// Reads little-endian integers. On a short read, `value` does not change, and the first function
// returns 0.
class KESTRO_API IOIntReader : public IOFilter {
 public:
  explicit IOIntReader(IO& io) : IOFilter("IOIntReader", io) {}
  unsigned Read32();
  bool Read32(unsigned& value);
  bool Read16(unsigned short& value);
};

// Writes little-endian integers. Returns the number of bytes written, like IO::Write.
class KESTRO_API IOIntWriter : public IOFilter {
 public:
  explicit IOIntWriter(IO& io) : IOFilter("IOIntWriter", io) {}
  unsigned Write32(unsigned value);
  unsigned Write16(int value);
  // Writes at an offset given as for Seek, then restores the position.
  unsigned Write32(unsigned value, int64 offset, Position whence);
};

// Reads through a buffer of one block. Refuses to write.
class KESTRO_API IOBlockReader : public IOFilter {
 public:
  IOBlockReader(IO& io, int blockSize);
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const*, unsigned) override { return 0; }

 private:
  std::vector<unsigned char> _block;
  int64 _blockStart = 0;    // position of the block in the stream
  unsigned _blockFill = 0;  // bytes in the block
  int64 _position;
};

// A stream over memory of fixed size. If the memory cannot be allocated, Max is 0.
class KESTRO_API IOBuffer : public IO {
 public:
  // `zero` clears the memory; otherwise bytes that were never written are undefined.
  explicit IOBuffer(int size, bool zero = true);

  unsigned char* Data() { return _data.get(); }
  int64 Size() override { return _size; }  // end of the written bytes
  int64 Max() const { return _max; }       // size of the memory
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const* data, unsigned size) override;  // writes as much as fits
  bool Truncate(int64 size) override;                        // can only shrink

 private:
  std::unique_ptr<unsigned char[], decltype(&std::free)> _data;
  int64 _max, _size = 0, _position = 0;
};

// Forwards everything and reports each transfer (id, data, number of bytes) to a notification
// function, unless that is null.
class KESTRO_API IOCallBack : public IOFilter {
 public:
  using Notify = void (*)(unsigned id, void* data, unsigned size);
  IOCallBack(IO& io, unsigned id, Notify notify)
      : IOFilter("IOCallBack", io), _id(id), _notify(notify) {}
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const* data, unsigned size) override;

 private:
  unsigned _id;
  Notify _notify;
};

// Computes the target of a seek. False if it is negative or does not fit.
KESTRO_API bool SeekTarget(IO& io, int64 offset, int whence, int64& target);

}  // namespace kestro::base
