// An AVI file as a whole: its chunk tree, its tracks, its index. Files of any writer, cut off or
// damaged ones too, as far as they can be understood.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "avi/RiffReader.h"

namespace kestro::tool {

struct AviTrack {
  std::string type;     // "video", "audio", "text", or the four characters of another one
  std::string handler;  // four characters
  std::string codec;    // "h264", "hevc", "mjpeg", "pcm", ..., or the four characters of another
  unsigned width = 0, height = 0;                   // video
  unsigned sampleRate = 0, channels = 0, bits = 0;  // sound
  unsigned scale = 0, rate = 0, length = 0;         // of the stream header
  unsigned bytesPerSecond = 0;                      // sound

  base::uint64 chunks = 0, keyChunks = 0, bytes = 0;  // bytes of payload
  bool keysKnown = false;
  int64 duration_ms = 0;

  std::string Kind() const;  // for people: "video h264"
};

struct IndexEntry {
  static constexpr unsigned kKey = 0x10;
  unsigned id = 0, flags = 0;
  int64 offset = 0;   // of the chunk's header
  unsigned size = 0;  // see AviFile::DataSize
  int64 place = 0;    // of the entry itself
};
using EntrySink = std::function<void(IndexEntry const&)>;

// The entries of an index chunk in their order, `base` added to their offsets. Those that name no
// track data are left out, unless all are wanted.
void ReadEntries(RiffReader& reader, Chunk const& index, int64 base, EntrySink const& sink,
                 bool all = false);

// Whether an entry tells the size of its chunk. The index of this system's text and motion JPEG
// counts the pad, and for JPEG the chunk's header.
bool SizeAgrees(AviTrack const& track, IndexEntry const& entry, Chunk const& chunk);

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
  // Whether the index tells of all data chunks.
  bool Indexed() const { return _indexed; }
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
  // The data chunks of every movi list, in file order.
  void ForEachData(RiffReader::DataSink const& sink);
  RiffReader& Reader() { return _reader; }

 private:
  void Read(std::string const& name);
  void Walk(int64 begin, int64 limit, int depth);
  void Unfinished(Chunk& chunk, int64 limit);
  void ReadTracks();
  void ReadHeader(Chunk const& chunk, AviTrack& track);
  void ReadFormat(Chunk const& chunk, AviTrack& track);
  void FindIndex();
  std::string HeaderPlace() const;
  void Count();
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
  bool _indexed = false, _cutOff = false;
};

}  // namespace kestro::tool
