// Reads text from files of JSON lines or subtitles.
#pragma once

#include <string>
#include <vector>

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
  CueFile(std::string const& path, InputOptions const& options);

  void Begin(Timeline& timeline, EpochStart const& start) override;
  bool HasVideo() const override { return false; }
  bool Read() override { return false; }  // the track has everything
  void CutAt(std::int64_t session_ns) override;
  Notices Findings() const override;
  ReadExtent ReadSoFar() const override { return {0, 0}; }

 private:
  void DropBefore(std::int64_t time_ns);

  std::string const _path;
  bool const _asSrt, _wanted;
  std::vector<Cue> _cues;     // in order, without those of earlier tracks
  unsigned _skipped = 0;      // while there was no video
  std::int64_t _done_ns = 0;  // texts before this time were recorded
  InputClock _clock;
  std::optional<std::int64_t> _shift_ns;  // by how much the session's clock is ahead
};

}  // namespace kestro::tool
