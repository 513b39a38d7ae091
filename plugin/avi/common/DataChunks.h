// Chunks with a payload that the application supplies.
#pragma once

#include "common/IList.h"

namespace kestro::plugin::avi {

void WriteZeros(IO& io, int64 count);

// A chunk over a buffer that it does not own and that outlives it. Without a buffer it writes
// nothing, not even a header: such a node is only for reading.
class BufferChunk : public IList {
 public:
  void fill(IO& io) override;
  void parse(IO& io) override;  // reads as many bytes as the buffer has

  unsigned char* const buffer;
  unsigned const length;

 protected:
  BufferChunk(char const* name, unsigned char* data, unsigned bytes)
      : IList(name), buffer(data), length(bytes) {
    _size = bytes;
  }
};

struct cstrd : BufferChunk {
  cstrd(unsigned char* data, unsigned bytes) : BufferChunk("strd", data, bytes) {}
  void parse(IO& io) override;

  int64 dataPos = 0;  // of a parsed chunk: the position of its payload
};

struct cstrn : BufferChunk {
  cstrn(unsigned char* data, unsigned bytes) : BufferChunk("strn", data, bytes) {}
};

// Compatibility: lower case, as in every file so far.
struct cisft : BufferChunk {
  cisft(unsigned char* data, unsigned bytes) : BufferChunk("isft", data, bytes) {}
};

// Filler: a buffer followed by zeros.
class cjunk : public BufferChunk {
 public:
  cjunk(unsigned char* data, unsigned bytes) : BufferChunk("JUNK", data, bytes) {}

  // Sets how many zero bytes follow the buffer.
  virtual void AddSize(unsigned n);

  void fill(IO& io) override;
  void parse(IO& io) override;

 private:
  unsigned _extra = 0;
};

}  // namespace kestro::plugin::avi
