// Chunks of a RIFF file, read without trusting it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/FourCC.h"
#include "base/IO.h"

namespace kestro::avi {

using base::int64;

// A code as text; what cannot be printed becomes '.', zeros and blanks at the end are left out.
std::string CodeText(unsigned code);

// A chunk of track data: two digits and two letters, such as "00dc".
bool IsDataCode(unsigned code);
inline int TrackOfCode(unsigned code) {
  return static_cast<int>((code & 0xFF) - '0') * 10 + static_cast<int>((code >> 8 & 0xFF) - '0');
}

struct Chunk {
  unsigned id = 0;
  unsigned type = 0;  // of a list, 0 for any other chunk
  int64 offset = 0;   // of the header
  int64 size = 0;     // as the header says
  int64 end = 0;      // of the content, as far as there is room for it
  int depth = 0;

  int64 Payload() const { return offset + 8; }
  int64 Data() const { return Payload() + (type != 0 ? 4 : 0); }  // a list's first chunk
  bool Cut() const { return end < Payload() + size; }
};

// Offsets and sizes are checked against the file before they are used, and nothing is allocated by
// what the file says.
class RiffReader {
 public:
  explicit RiffReader(std::string const& path);  // throws Error
  RiffReader(std::unique_ptr<base::IO> file, std::string const& name);

  int64 Size() const { return _size; }
  // Reads up to `size` bytes; returns how many there were.
  unsigned Read(int64 offset, void* data, unsigned size);

  // The chunk at an offset. False when its header does not fit before `limit`.
  bool Header(int64 offset, int64 limit, Chunk& chunk);
  // Where the next one begins. Chunks of odd size are followed by a zero, but not everywhere.
  int64 Next(Chunk const& chunk);

  // The chunks of track data between two offsets, those in "rec " lists too, in file order.
  // Returns where the first other thing stands, which is `end` or beyond when all is well.
  using DataSink = std::function<void(Chunk const&)>;
  int64 ScanData(int64 begin, int64 end, DataSink const& sink);

 private:
  std::unique_ptr<base::IO> _file;
  base::IOBlockReader _reader;
  int64 _size = 0;
};

}  // namespace kestro::avi
