// Turns a file whose index is before the data into an ordinary one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "avi/RiffReader.h"
#include "recorder/TrackInfo.h"

namespace kestro::record {

// An index before the data, and the chunks that it has no room for.
struct FrontIndex {
  std::uint64_t at = 0;       // offset of its entries, 0: there is no such index
  std::uint64_t data = 0;     // offset of the first chunk in movi
  std::uint64_t entries = 0;  // number of entries in it
  std::vector<bool> beyond;   // for each later chunk, in file order: whether it is a key frame
  std::vector<TrackInfo::Codec> codecs;  // by track
  std::int64_t reach_ns = 0;             // end of the last packet that it has an entry for
  std::string full;                      // the muxer's message that the index is full
};

// Writes a complete index after the data, for players that look only there. If the index before the
// data lacks entries, it becomes JUNK: readers that find it would prefer it.
//
// Each step is durable before the next one, so that after a crash at any time everything can be
// played that could be before: first the new index is written, then RIFF's size, then the id of the
// old index. A large one is split into several JUNK chunks: their headers are written into it
// first, and take effect with the size of the first chunk, which is written last.
class OrdinaryClose {
 public:
  // FFmpeg does not accept larger JUNK before the data.
  static constexpr unsigned kLargestJunk = 1000000;

  // `file` must be readable and writable, and closed by the muxer. Both must outlive the object.
  OrdinaryClose(base::IO& file, FrontIndex const& index, unsigned largestJunk = kLargestJunk);

  // Returns an empty text on success, else the reason; the file is then unchanged. `free`: free
  // space on the device in bytes. Takes as long as reading the index and the headers of the chunks
  // that it lacks.
  std::string Run(std::uint64_t free);

 private:
  using int64 = base::int64;

  std::string Check(std::uint64_t free);
  bool AppendIndex();
  bool CopyEntries();
  int64 FirstMissing();
  bool AddMissingEntries();
  bool TurnIntoJunk();
  bool Undo();
  bool WriteAt(int64 at, std::string const& bytes);
  bool WritePieceHeaders(bool split);
  bool Flush() { return _file.FlushData(); }

  base::IO& _file;
  FrontIndex const& _index;
  avi::RiffReader _reader;
  int64 const _at;                // offset of the entries before the data
  unsigned const _largest;        // size of a JUNK chunk
  int64 const _piece;             // distance between the headers of JUNK chunks
  int64 const _end;               // of the closed file: the new index starts here
  unsigned _riff = 0, _room = 0;  // sizes of RIFF and of the index before the data
  std::uint64_t _total;           // number of entries
  bool _appended = false;
};

}  // namespace kestro::record
