// The places in a recording that a repair in place changes.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "avi/AviTrack.h"

namespace kestro::tool {

using base::int64;

struct Layout {
  std::vector<avi::AviTrack> tracks;  // as in the headers
  avi::Chunk riff, movi;
  int64 avih = 0;           // offset of its fields
  std::vector<int64> strh;  // the same, by track
  avi::Chunk front;         // the index before the data; id 0 if there is none
  avi::Chunk retired;       // JUNK that was such an index and is still one chunk; id 0 if none
  bool own = false;         // whether this system has written the headers

  int64 Data() const { return movi.offset + 12; }  // the first chunk
  // Where a chunk after the data begins, if the size of movi is right.
  int64 MoviEnd() const { return movi.Payload() + movi.size + movi.size % 2; }
  int64 RiffEnd() const { return riff.Payload() + riff.size; }
  int Room() const { return static_cast<int>(front.size / 16); }  // entries before the data
};

// `open` opens the same file once more. Throws Error if there is no header, or no data.
Layout ReadLayout(avi::RiffReader& file, std::string const& name,
                  std::function<std::unique_ptr<base::IO>()> const& open);

}  // namespace kestro::tool
