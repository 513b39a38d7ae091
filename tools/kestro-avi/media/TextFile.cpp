#include "media/TextFile.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "media/Scaled.h"

namespace kestro::tool {

static constexpr std::int64_t kLongestCue_ms = 2000;

// When a frame begins. Rounded down, so that no earlier frame begins at or after this time.
static std::int64_t Time_ms(avi::AviTrack const& clock, std::uint64_t frame) {
  constexpr std::int64_t kLatest = std::int64_t{1} << 40;
  std::int64_t const ms = Scaled(static_cast<std::int64_t>(frame), std::int64_t{clock.scale} * 1000,
                                 clock.rate, Rounding::kTowardsZero);
  return ms < 0 ? kLatest : std::min(ms, kLatest);  // negative on overflow
}

static std::string Stamp(std::int64_t ms) {
  char text[48];
  std::snprintf(text, sizeof text, "%02lld:%02d:%02d,%03d", static_cast<long long>(ms / 3600000),
                static_cast<int>(ms / 60000 % 60), static_cast<int>(ms / 1000 % 60),
                static_cast<int>(ms % 1000));
  return text;
}

// An empty line would end the cue, so a blank is added.
static std::string Lines(std::string const& text) {
  std::string lines;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t const end = std::min(text.find('\n', at), text.size());
    std::string const line = text.substr(at, end - at);
    lines += (line.empty() || line == "\r" ? " " : line) + "\n";
    at = end + 1;
  }
  return lines;
}

SrtFile::SrtFile(std::string const& path, avi::AviTrack const& clock)
    : StreamFile(path), _clock(clock), _end_ms(Time_ms(clock, clock.chunks)) {}

void SrtFile::Write(std::size_t, avi::Piece const& piece) {
  if (piece.size == 0) return;
  std::int64_t const start = Time_ms(_clock, piece.position);
  if (start != _start_ms) WriteWaiting(start);
  _start_ms = start;
  _waiting.emplace_back(piece.data, piece.data + piece.size);
}

void SrtFile::WriteWaiting(std::int64_t next_ms) {
  std::int64_t end = std::min(_start_ms + kLongestCue_ms, next_ms);
  if (_end_ms > _start_ms) end = std::min(end, _end_ms);
  for (std::string const& text : _waiting) {
    std::string const cue = (_number != 0 ? "\n" : "") + std::to_string(_number + 1) + "\n" +
                            Stamp(_start_ms) + " --> " + Stamp(end) + "\n" + Lines(text);
    ++_number;
    Store(cue.data(), cue.size());
  }
  _waiting.clear();
}

std::string SrtFile::Finish() {
  WriteWaiting(INT64_MAX);
  return StreamFile::Finish();
}

void JsonLinesFile::Write(std::size_t, avi::Piece const& piece) {
  using Json = nlohmann::ordered_json;
  Json const json{{"pts_ms", Time_ms(_clock, piece.position)},
                  {"text", std::string(piece.data, piece.data + piece.size)}};
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
