// Byte streams.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "base/Object.h"

namespace kestro::base {

// An abstract, seekable byte stream. Positions and sizes are bytes, 64-bit. One thread at a time.
class KESTRO_API IO : public Object {
 public:
  enum Position { kBegin = 0, kCurrent = 1, kEnd = 2 };
  static constexpr unsigned kFailed = 0xFFFFFFFFu;  // what Read returns on failure

  using Object::Object;

  virtual int64 Size() = 0;  // -1 on failure
  virtual int64 Tell() = 0;
  // Any position at or above 0 may be sought, also beyond the end; a negative one is refused.
  virtual bool Seek(int64 offset, int whence) = 0;
  // Bytes read: fewer than asked for at the end, or where reading failed after them, which the next
  // read then does too; 0 at or beyond the end; kFailed when it failed and nothing came.
  virtual unsigned Read(void* data, unsigned size) = 0;
  // Bytes written: fewer than asked for only when the rest failed.
  virtual unsigned Write(void const* data, unsigned size) = 0;
  // Each class says which crash, of the process or of the machine, the data survives after it.
  [[nodiscard]] virtual bool Flush() { return true; }
  // The same where nothing was written beyond the size that the last Flush has met; may cost less.
  [[nodiscard]] virtual bool FlushData() { return Flush(); }
  // The underlying file descriptor, -1 where there is none.
  virtual int Handle() { return -1; }

  // The end of what is known to be stored: the size, less what a failed write has lost.
  virtual int64 GoodEnd() { return Size(); }
  // Cuts or extends the stream; the position stays. False where the medium cannot.
  [[nodiscard]] virtual bool Truncate(int64) { return false; }
  // The system's error number of the last failure, 0 for none.
  virtual int Error() { return 0; }
};

// Passes everything on to another IO, which it does not own.
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

// Reads little-endian integers. On a short read the value stays as it was (0 where it is returned).
class KESTRO_API IOIntReader : public IOFilter {
 public:
  explicit IOIntReader(IO& io) : IOFilter("IOIntReader", io) {}
  unsigned Read32();
  bool Read32(unsigned& value);
  bool Read16(unsigned short& value);
};

// Writes little-endian integers; bytes written, as IO::Write.
class KESTRO_API IOIntWriter : public IOFilter {
 public:
  explicit IOIntWriter(IO& io) : IOFilter("IOIntWriter", io) {}
  unsigned Write32(unsigned value);
  unsigned Write16(int value);
  // Writes at an offset counted as for Seek, and returns to where the stream stood.
  unsigned Write32(unsigned value, int64 offset, Position whence);
};

// Reads through one block of memory. Writing is refused.
class KESTRO_API IOBlockReader : public IOFilter {
 public:
  IOBlockReader(IO& io, int blockSize);
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const*, unsigned) override { return 0; }

 private:
  std::vector<unsigned char> _block;
  int64 _blockStart = 0;    // file position of the block
  unsigned _blockFill = 0;  // bytes in it
  int64 _position;
};

// A stream over memory of a fixed size. Memory that cannot be had is a size of 0: see Max.
class KESTRO_API IOBuffer : public IO {
 public:
  // `zero` clears the memory; without it, unwritten bytes are whatever they are.
  explicit IOBuffer(int size, bool zero = true);

  unsigned char* Data() { return _data.get(); }
  int64 Size() override { return _size; }  // the highest byte written
  int64 Max() const { return _max; }       // the memory
  int64 Tell() override { return _position; }
  bool Seek(int64 offset, int whence) override;
  unsigned Read(void* data, unsigned size) override;
  unsigned Write(void const* data, unsigned size) override;  // what does not fit is refused
  bool Truncate(int64 size) override;                        // down only

 private:
  std::unique_ptr<unsigned char[], decltype(&std::free)> _data;
  int64 _max, _size = 0, _position = 0;
};

// Passes through and reports each transfer (id, the data, bytes moved) to a notification function;
// a null function reports nothing.
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

// Applies a whence to a position: false when the target is negative or does not fit.
KESTRO_API bool SeekTarget(IO& io, int64 offset, int whence, int64& target);

}  // namespace kestro::base
