// Reads the data of selected tracks and checks it against the index.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "avi/AviFile.h"

namespace kestro::avi {

// A whole frame or text, or a piece of audio.
struct Piece {
  std::uint8_t const* data;
  std::size_t size;
  // Video: frame number; audio: number of the first sample; text: number of the next frame in the
  // track that gives it its times (AviFile::ClockOf).
  std::uint64_t position;
  bool key = false;  // the index marks it as a key frame
  int64 offset = 0;  // of its chunk
};

// Reads the chunks that have an index entry or, if some have none, all chunks in movi. Skips a
// chunk that does not match its entry, but counts its frame.
class TrackReader {
 public:
  // `avi` must outlive the reader. `selected`: by track.
  TrackReader(AviFile& avi, std::vector<bool> const& selected) : _avi(avi), _selected(selected) {}

  // A part of the tracks.
  class Range {
   public:
    virtual ~Range() = default;
    // Whether a chunk has something of the part; `position` and `count` as in Piece.
    virtual bool Has(std::size_t track, std::uint64_t position, std::uint64_t count) const = 0;
    // Cuts a piece to the part, possibly to nothing. The data stays valid until the next call.
    virtual void Cut(std::size_t track, Piece& piece) = 0;
  };
  void Limit(Range* range) { _range = range; }  // must outlive the reader; null: read everything

  // Calls `sink` for each video frame (also empty ones), each text, and pieces of audio, until it
  // returns false.
  using Sink = std::function<bool(std::size_t track, Piece const& piece)>;
  void ForEach(Sink const& sink);

  // What was wrong in the last ForEach, one line each; after the first few the rest is only
  // counted.
  std::vector<std::string> Faults() const;

 private:
  bool ReadChunk(IndexEntry const& entry, Sink const& sink);
  unsigned AudioSize(IndexEntry const& entry);
  bool CheckChunk(IndexEntry const& entry, bool whole);
  bool ReadPieces(IndexEntry const& entry, std::size_t track, Sink const& sink);
  void AddFault(IndexEntry const& entry, std::string const& what);

  AviFile& _avi;
  std::vector<bool> _selected;
  Range* _range = nullptr;
  std::vector<std::uint64_t> _position;  // by track: frames, texts or samples so far
  std::vector<std::uint8_t> _buffer;
  std::vector<std::string> _faults;
  std::uint64_t _faultCount = 0;
};

}  // namespace kestro::avi
