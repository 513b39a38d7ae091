// Reads the chunk tree, tracks and index of an AVI file by any writer. Reads as much as possible of
// damaged files and of recordings that were cut off.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "avi/AviTrack.h"
#include "avi/Index.h"
#include "avi/StartTime.h"

namespace kestro::avi {

class AviFile {
 public:
  enum class Index { kNone, kFirst, kLast };  // its place: before or after the data

  // Reads everything but the data. Throws Error if it is not an AVI file.
  explicit AviFile(std::string const& path) : _reader(path) { Read(path); }
  AviFile(std::unique_ptr<base::IO> file, std::string const& name)
      : _reader(std::move(file), name) {
    Read(name);
  }

  int64 Size() const { return _reader.Size(); }
  std::vector<Chunk> const& Tree() const { return _tree; }  // in file order, without the data
  std::vector<AviTrack> const& Tracks() const { return _tracks; }
  Index IndexPlace() const { return _place; }
  // What index offsets are relative to; -1 when the index does not point to chunks.
  int64 IndexBase() const { return _indexBase; }
  Chunk const& IndexChunk() const { return _index; }  // only valid if there is an index
  // Whether there is an index that points to chunks, though maybe not to all of them.
  bool HasIndex() const { return _hasIndex; }
  // Whether the index has an entry for every chunk with data; empty chunks may lack one.
  bool Indexed() const { return _indexed; }
  int Parts() const { return _riffs; }  // number of RIFF chunks: the index covers the first one
  int64 Duration_ms() const;
  // How far apart the video and audio tracks end.
  int64 Skew_ms() const;
  // The track that gives a track its times: the first video track with data for text, if there is
  // one, else the track itself.
  std::size_t ClockOf(std::size_t track) const;
  // What is unusual about the file, one line each.
  std::vector<std::string> const& Notes() const { return _notes; }
  // Whether the file is incomplete.
  bool CutOff() const { return _cutOff; }

  // Calls `sink` for each index entry in order, with its offset from the beginning of the file.
  // Entries that are not track data are skipped unless `all` is set.
  void ForEachEntry(EntrySink const& sink, bool all = false);
  // The payload size of an entry. In files of this system, the index entries of text and motion
  // JPEG also count the pad byte, and for JPEG the chunk header: if the chunk confirms this, its
  // own size is returned.
  unsigned DataSize(IndexEntry const& entry);
  // Calls `sink` for the data chunks of all movi lists in file order: with the index entry's flags
  // if there is an entry, and always with the chunk's size. Returns the offset of the first bytes
  // that are not a chunk, -1 if there are none.
  int64 ForEachChunk(EntrySink const& sink);
  // Calls `sink` for the packets of all tracks: by the index if it covers them all, else by the
  // data.
  void ForEachPacket(EntrySink const& sink);
  Software ReadSoftware();  // from INFO; empty without it
  RiffReader& Reader() { return _reader; }

 private:
  void Read(std::string const& name);
  void ReadTree(int64 begin, int64 limit, int depth);
  void ExtendUnfinished(Chunk& chunk, int64 limit);
  void ReadTracks();
  void FindIndex();
  std::string MissingHeaders() const;
  void CountChunks();
  bool CountIndex(std::vector<base::uint64>& indexed);
  bool CoversAllData();
  bool CountData(std::vector<base::uint64> const& indexed);
  AviTrack* TrackOf(unsigned id);
  std::vector<Chunk> DataLists() const;
  void SetDurations();
  void Note(std::string const& text) { _notes.push_back(text); }

  RiffReader _reader;
  std::vector<Chunk> _tree;
  std::vector<AviTrack> _tracks;
  std::vector<std::string> _notes;
  Chunk _index;  // only valid unless _place is kNone
  Index _place = Index::kNone;
  int64 _indexBase = 0;
  int _riffs = 0;
  bool _hasIndex = false, _indexed = false, _cutOff = false;
};

}  // namespace kestro::avi
