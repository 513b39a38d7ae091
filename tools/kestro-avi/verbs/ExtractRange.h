// The part of a file that "extract" writes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "avi/TrackReader.h"

namespace kestro::tool {

// A part begins with the key frame of the first video track that is at or before the requested
// time, and all tracks begin there: audio to the sample, other H.264 and HEVC tracks with their
// next key frame. Without video it begins at the requested time.
class ExtractRange : public avi::TrackReader::Range {
 public:
  // Reads the index, or all chunk headers. `to_ms`: negative for the end. Throws Error when nothing
  // is left.
  ExtractRange(avi::AviFile& avi, std::int64_t from_ms, std::int64_t to_ms);

  bool Has(std::size_t track, std::uint64_t position, std::uint64_t count) const override;
  void Cut(std::size_t track, avi::Piece& piece) override;    // positions then count from the part
  std::int64_t Begin_ns() const { return _begin_us * 1000; }  // of the part, in the file
  // The track as it is in the part.
  avi::AviTrack Describe(std::size_t track) const;

 private:
  struct Part {
    std::uint64_t begin = 0, end = UINT64_MAX;  // positions
    std::uint64_t origin = 0;                   // where they count from
  };
  using Frames = std::vector<avi::IndexEntry>;
  void ReadFrames();
  bool IsKey(std::size_t track, std::uint64_t frame);
  std::int64_t Begin_us(std::int64_t from_ms);
  Part PartOf(std::size_t track, std::int64_t begin_us, std::int64_t to_ms);
  bool CutTimedTexts(avi::Piece& piece);

  avi::AviFile& _avi;
  std::vector<Frames> _frames;  // by track: of video
  std::vector<Part> _parts;     // by track
  std::int64_t _begin_us = 0, _to_ms = -1;
  std::string _texts;
};

}  // namespace kestro::tool
