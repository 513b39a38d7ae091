// An AVI file as a whole: its chunk tree, its tracks, its index. Files of any writer, cut off or
// damaged ones too, as far as they can be understood.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "avi/AviTrack.h"
#include "avi/Index.h"

namespace kestro::avi {

class AviFile {
 public:
  enum class Index { kNone, kFirst, kLast };  // where it stands, seen from the data

  // Reads everything but the data. Throws Error for what is not an AVI file.
  explicit AviFile(std::string const& path) : _reader(path) { Read(path); }
  AviFile(std::unique_ptr<base::IO> file, std::string const& name)
      : _reader(std::move(file), name) {
    Read(name);
  }

  int64 Size() const { return _reader.Size(); }
  std::vector<Chunk> const& Tree() const { return _tree; }  // in file order, without the data
  std::vector<AviTrack> const& Tracks() const { return _tracks; }
  Index IndexPlace() const { return _place; }
  // What the index's offsets count from; -1 when it leads to no chunks.
  int64 IndexBase() const { return _indexBase; }
  Chunk const& IndexChunk() const { return _index; }  // where there is one
  // Whether there is an index that leads to chunks, if not to all of them.
  bool HasIndex() const { return _hasIndex; }
  // Whether it names every chunk with data: empty ones may go without an entry.
  bool Indexed() const { return _indexed; }
  int Parts() const { return _riffs; }  // RIFF chunks: an index is that of the first
  int64 Duration_ms() const;
  // The track whose frames give a track its times. For text that is the first video track with
  // data, where there is one; every other track is its own.
  std::size_t ClockOf(std::size_t track) const;
  // What is unusual about the file, one line each.
  std::vector<std::string> const& Notes() const { return _notes; }
  // Whether the file is incomplete.
  bool CutOff() const { return _cutOff; }

  // The index in its order, offsets counted from the beginning of the file whatever the file's
  // count from. Entries that name no track data are left out, unless all are wanted.
  void ForEachEntry(EntrySink const& sink, bool all = false);
  // The bytes of an entry's payload. The index of this system's text and motion JPEG counts the
  // pad, and for JPEG the chunk's header: for these the chunk tells, when the entry agrees with it.
  unsigned DataSize(IndexEntry const& entry);
  // The data chunks of every movi list, in file order: those that the index names with its flags,
  // and those that it does not. Sizes are those of the chunks. Returns where bytes stand that are
  // no chunk, -1 where there are none.
  int64 ForEachChunk(EntrySink const& sink);
  RiffReader& Reader() { return _reader; }

 private:
  void Read(std::string const& name);
  void Walk(int64 begin, int64 limit, int depth);
  void Unfinished(Chunk& chunk, int64 limit);
  void ReadTracks();
  void FindIndex();
  std::string HeaderPlace() const;
  void Count();
  bool CountIndex(std::vector<base::uint64>& named);
  bool NothingBetween();
  bool CountData(std::vector<base::uint64> const& named);
  AviTrack* TrackOf(unsigned id);
  std::vector<Chunk> DataLists() const;
  void Time();
  void Note(std::string const& text) { _notes.push_back(text); }

  RiffReader _reader;
  std::vector<Chunk> _tree;
  std::vector<AviTrack> _tracks;
  std::vector<std::string> _notes;
  Chunk _index;  // meaningful unless _place is kNone
  Index _place = Index::kNone;
  int64 _indexBase = 0;  // what its offsets count from
  int _riffs = 0;
  bool _hasIndex = false, _indexed = false, _cutOff = false;
};

}  // namespace kestro::avi
