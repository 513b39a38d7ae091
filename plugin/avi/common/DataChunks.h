// Chunks whose payload the application supplies.
#pragma once

#include "common/IList.h"

namespace kestro::plugin::avi {

void WriteZeros(IO& io, int64 count);

// A chunk over a buffer that is not owned and outlives the node. Without a buffer it writes nothing
// at all, not even a header: such a node is for reading only.
class BufferChunk : public IList {
 public:
  void fill(IO& io) override;
  void parse(IO& io) override;  // into the buffer, as many bytes as that has

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

  int64 dataPos = 0;  // of a parsed chunk: where its payload starts
};

struct cstrn : BufferChunk {
  cstrn(unsigned char* data, unsigned bytes) : BufferChunk("strn", data, bytes) {}
};

// In lower case, on purpose: files have always had it so.
struct cisft : BufferChunk {
  cisft(unsigned char* data, unsigned bytes) : BufferChunk("isft", data, bytes) {}
};

// Filler: a buffer and zeros behind it.
class cjunk : public BufferChunk {
 public:
  cjunk(unsigned char* data, unsigned bytes) : BufferChunk("JUNK", data, bytes) {}

  // Makes it n zero bytes longer than its buffer; a later call replaces the number.
  virtual void AddSize(unsigned n);

  void fill(IO& io) override;
  void parse(IO& io) override;

 private:
  unsigned _extra = 0;
};

}  // namespace kestro::plugin::avi
