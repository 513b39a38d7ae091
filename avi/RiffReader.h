// Reads the chunks of a RIFF file that may be damaged.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "base/FourCC.h"
#include "base/IO.h"

namespace kestro::avi {

using base::int64;

// A four-character code as text; unprintable characters become '.', trailing zeros and blanks are
// dropped.
std::string CodeText(unsigned code);

// Whether it is the id of a chunk of track data: two digits and two letters, such as "00dc".
bool IsDataCode(unsigned code);
inline int TrackOfCode(unsigned code) {
  return static_cast<int>((code & 0xFF) - '0') * 10 + static_cast<int>((code >> 8 & 0xFF) - '0');
}

struct Chunk {
  unsigned id = 0;
  unsigned type = 0;  // of a list; 0 for other chunks
  int64 offset = 0;   // of the header
  int64 size = 0;     // from the header
  int64 end = 0;      // of the content, at most the end of the list or file
  int depth = 0;

  int64 Payload() const { return offset + 8; }
  int64 Data() const { return Payload() + (type != 0 ? 4 : 0); }  // a list's first chunk
  bool Cut() const { return end < Payload() + size; }
};

// Opens an existing file for reading. Throws Error for anything else, such as a pipe.
std::unique_ptr<base::IO> OpenFile(std::string const& path);

// Checks offsets and sizes against the file before using them, and never allocates memory by a size
// in the file.
class RiffReader {
 public:
  explicit RiffReader(std::string const& path);  // throws Error
  RiffReader(std::unique_ptr<base::IO> file, std::string const& name);

  int64 Size() const { return _size; }
  // Reads up to `size` bytes; returns the number read.
  unsigned Read(int64 offset, void* data, unsigned size);

  // Reads the header of the chunk at an offset. False when it does not fit before `limit`.
  bool Header(int64 offset, int64 limit, Chunk& chunk);
  // The offset of the next chunk. A chunk of odd size should be followed by a zero byte, but some
  // writers omit it.
  int64 Next(Chunk const& chunk);

  // Calls `sink` for the chunks of track data between two offsets in file order, including those in
  // "rec " lists. Returns the offset of the first bytes that are anything else; at least `end` when
  // there are none.
  using DataSink = std::function<void(Chunk const&)>;
  int64 ScanData(int64 begin, int64 end, DataSink const& sink);

 private:
  std::unique_ptr<base::IO> _file;
  base::IOBlockReader _reader;
  int64 _size = 0;
};

}  // namespace kestro::avi
