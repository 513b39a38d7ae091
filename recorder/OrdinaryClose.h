// Makes an ordinary file of one that was closed with its index before the data.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "avi/RiffReader.h"
#include "recorder/TrackInfo.h"

namespace kestro::record {

// An index before the data, and what it has no room for.
struct FrontIndex {
  std::uint64_t at = 0;       // where its entries begin, 0: there is none
  std::uint64_t data = 0;     // where the first chunk of movi stands
  std::uint64_t entries = 0;  // that it holds
  std::vector<bool> beyond;   // the chunks after these, in file order: whether they are key frames
  std::vector<TrackInfo::Codec> codecs;  // by track
  std::int64_t reach_ns = 0;             // of the time of the file
  std::string full;                      // what the muxer says when there is no more room
};

// Writes an index with every entry after the data, for players that look there only. An index
// before the data that lacks entries becomes JUNK, as readers that find it would prefer it.
//
// Each step is durable before the next one, and whenever the machine crashes, what could be played
// before still can be: the new index; RIFF's size; then the tag of the old one. Its heads of inner
// JUNK lie inside until the first piece's size, which is last, makes them chunks.
class OrdinaryClose {
 public:
  // FFmpeg takes no larger JUNK before the data.
  static constexpr unsigned kLargestJunk = 1000000;

  // `file` can be read and written, and was closed. Both outlive the object.
  OrdinaryClose(base::IO& file, FrontIndex const& index, unsigned largestJunk = kLargestJunk);

  // Empty when it is done. Otherwise the reason, and the file is as it was. `free` are the bytes
  // that could be stored yet. Takes as long as reading the index, and the heads of the chunks that
  // it lacks.
  std::string Run(std::uint64_t free);

 private:
  using int64 = base::int64;

  std::string Refuses(std::uint64_t free);
  bool Append();
  bool CopyEntries();
  int64 FirstBeyond();
  bool AddEntries();
  bool Retire();
  bool Restore();
  bool Put(int64 at, std::string const& bytes);
  bool PutPieces(bool split);
  bool Stored() { return _file.FlushData(); }

  base::IO& _file;
  FrontIndex const& _index;
  avi::RiffReader _reader;
  int64 const _at;  // of the entries before the data
  unsigned const _largest;
  int64 const _pieces;            // each so many bytes of them begin with the head of an inner JUNK
  int64 const _end;               // of the file as it was closed: there the new index begins
  unsigned _riff = 0, _room = 0;  // RIFF's size then, and that of the index before the data
  std::uint64_t _total;           // entries
  bool _appended = false;
};

}  // namespace kestro::record
