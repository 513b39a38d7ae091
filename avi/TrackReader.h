// The data of chosen tracks, checked against the index.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "avi/AviFile.h"

namespace kestro::avi {

// A whole frame or text, or some sound.
struct Piece {
  std::uint8_t const* data;
  std::size_t size;
  // Video: number of the frame; sound: of the first sample; text: of the frame of its clock's track
  // that follows it, which is its own number when it is its own clock.
  std::uint64_t position;
};

// Reads the chunks that the index names, or, where it does not name all, every chunk of movi. A
// chunk that is not what the index says is left out, and its time stays empty.
class TrackReader {
 public:
  // Both outlive the reader.
  TrackReader(AviFile& avi, std::vector<bool> const& wanted) : _avi(avi), _wanted(wanted) {}

  // Video frame by frame, empty ones too; texts one by one; sound in pieces. False from the sink
  // ends it.
  using Sink = std::function<bool(std::size_t track, Piece const& piece)>;
  void ForEach(Sink const& sink);

  // What was wrong the last time, one line each; those beyond the first few are only counted.
  std::vector<std::string> Faults() const;

 private:
  bool Take(IndexEntry const& entry, Sink const& sink);
  bool Whole(IndexEntry const& entry, bool whole);
  bool Pieces(IndexEntry const& entry, std::size_t track, Sink const& sink);
  void Fault(IndexEntry const& entry, std::string const& what);

  AviFile& _avi;
  std::vector<bool> _wanted;
  std::vector<std::uint64_t> _position;  // by track: frames, texts or sample frames so far
  std::vector<std::uint8_t> _buffer;
  std::vector<std::string> _faults;
  std::uint64_t _faultCount = 0;
};

}  // namespace kestro::avi
