// Text tracks as files that players and scripts read.
#pragma once

#include <string>
#include <vector>

#include "media/StreamFile.h"

namespace kestro::tool {

// SubRip. A text is shown until the next one comes, but not for long and not beyond the video.
class SrtFile : public StreamFile {
 public:
  // `clock`: the track that times the texts.
  SrtFile(std::string const& path, avi::AviTrack const& clock);
  void Write(std::size_t track, avi::Piece const& piece) override;
  std::string Finish() override;

 private:
  void Show(std::int64_t next_ms);  // what waits

  avi::AviTrack _clock;
  std::int64_t _start_ms = 0, _end_ms;  // of what waits, of the video
  std::vector<std::string> _waiting;    // texts of one time
  unsigned _number = 0;
};

// A JSON object a line: {"pts_ms": 40, "text": "..."}.
class JsonLinesFile : public StreamFile {
 public:
  JsonLinesFile(std::string const& path, avi::AviTrack const& clock)
      : StreamFile(path), _clock(clock) {}
  void Write(std::size_t track, avi::Piece const& piece) override;
  std::string Findings() const override;

 private:
  avi::AviTrack _clock;
  unsigned _foreign = 0;  // texts that are not UTF-8
};

}  // namespace kestro::tool
