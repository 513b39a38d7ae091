// Reads text from files of JSON lines or subtitles.
#pragma once

#include "media/libav/Cue.h"
#include "media/libav/Input.h"
#include "media/libav/TextTrack.h"

namespace kestro::tool {

// One text track from SRT, WebVTT or ASS, or from lines such as {"pts_ms": 1500, "text": "hello"},
// in any order.
class CueFile : public Input {
 public:
  // Whether the file name has a matching extension.
  static bool IsCueFile(std::string const& path);

  // Reads the whole file. Throws an Error that names the invalid line, if there is one.
  CueFile(std::string const& path, InputOptions const& options, Timeline const& timeline);

  bool Read() override { return false; }  // the track has everything
  ReadExtent ReadSoFar() const override { return {0, 0}; }

 private:
  InputClock _clock;
};

}  // namespace kestro::tool
