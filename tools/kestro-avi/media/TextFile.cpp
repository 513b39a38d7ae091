#include "media/TextFile.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "media/TimedText.h"

namespace kestro::tool {

SrtFile::SrtFile(std::string const& path, avi::AviTrack const& clock)
    : StreamFile(path), _clock(clock), _end_ms(TextTime_ms(clock, clock.chunks)) {}

void SrtFile::Write(std::size_t, avi::Piece const& piece) {
  if (piece.size == 0) return;
  auto const timed = UnwrapSrt(piece.data, piece.size);
  for (TimedText const& text : timed) WriteCue(text);
  if (!timed.empty()) return;
  std::int64_t const start = TextTime_ms(_clock, piece.position);
  if (start != _start_ms) WriteWaiting(start);
  _start_ms = start;
  _waiting.emplace_back(piece.data, piece.data + piece.size);
}

void SrtFile::WriteCue(TimedText const& text) {
  std::string const cue = (_number != 0 ? "\n" : "") + SrtCue(_number + 1, text);
  ++_number;
  Store(cue.data(), cue.size());
}

void SrtFile::WriteWaiting(std::int64_t next_ms) {
  std::int64_t end = std::min(_start_ms + kLongestCue_ms, next_ms);
  if (_end_ms > _start_ms) end = std::min(end, _end_ms);
  for (std::string const& text : _waiting) WriteCue({_start_ms, end, text});
  _waiting.clear();
}

Written SrtFile::Finish() {
  WriteWaiting(INT64_MAX);
  return StreamFile::Finish();
}

void JsonLinesFile::Write(std::size_t, avi::Piece const& piece) {
  auto const timed = UnwrapSrt(piece.data, piece.size);
  for (TimedText const& text : timed)
    WriteLine({{"pts_ms", text.start_ms}, {"end_ms", text.end_ms}, {"text", text.text}});
  if (timed.empty())
    WriteLine({{"pts_ms", TextTime_ms(_clock, piece.position)},
               {"text", std::string(piece.data, piece.data + piece.size)}});
}

void JsonLinesFile::WriteLine(nlohmann::ordered_json const& json) {
  using Json = nlohmann::ordered_json;
  std::string line;
  try {
    line = json.dump();
  } catch (Json::type_error const&) {
    ++_foreign;
    line = json.dump(-1, ' ', false, Json::error_handler_t::replace);
  }
  line += '\n';
  Store(line.data(), line.size());
}

std::string JsonLinesFile::Findings() const {
  if (_foreign == 0) return "";
  return std::to_string(_foreign) + " texts are not UTF-8: invalid bytes were replaced";
}

}  // namespace kestro::tool
