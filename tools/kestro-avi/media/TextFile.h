// Writes text tracks to files for players and scripts.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "media/StreamFile.h"
#include "media/TimedText.h"

namespace kestro::tool {

// SubRip. A text without an end time is shown until the next one, but not for long and not after
// the end of the video.
class SrtFile : public StreamFile {
 public:
  // `clock`: the track that gives the texts their times.
  SrtFile(std::string const& path, avi::AviTrack const& clock);
  void Write(std::size_t track, avi::Piece const& piece) override;
  Written Finish() override;

 private:
  void WriteWaiting(std::int64_t next_ms);
  void WriteCue(TimedText const& text);

  avi::AviTrack _clock;
  std::int64_t _start_ms = 0, _end_ms;  // start of the waiting texts, end of the video
  std::vector<std::string> _waiting;    // texts with the same time
  unsigned _number = 0;
};

// One JSON object per line: {"pts_ms": 40, "text": "..."}, with "end_ms" if the file stores it.
class JsonLinesFile : public StreamFile {
 public:
  JsonLinesFile(std::string const& path, avi::AviTrack const& clock)
      : StreamFile(path), _clock(clock) {}
  void Write(std::size_t track, avi::Piece const& piece) override;
  std::string Findings() const override;

 private:
  void WriteLine(nlohmann::ordered_json const& json);

  avi::AviTrack _clock;
  unsigned _foreign = 0;  // texts that are not UTF-8
};

}  // namespace kestro::tool
