#include "media/libav/CueFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/TextEncoding.h"
#include "media/libav/SubtitleFile.h"

namespace kestro::tool {

using nlohmann::json;

static constexpr double kLongest_ms = 1e12;

static bool IsJsonLines(std::string const& path) {
  std::string const extension = Extension(path);
  return extension == ".jsonl" || extension == ".ndjson" || extension == ".json";
}

bool CueFile::IsCueFile(std::string const& path) {
  return IsJsonLines(path) || (IsSubtitleFile(path) && path.find("://") == path.npos);
}

static bool IsTime(json const& ms) {
  return ms.is_number() && std::abs(ms.get<double>()) <= kLongest_ms;
}
static std::int64_t ToNs(json const& ms) { return std::llround(ms.get<double>() * 1e6); }

static Cue ParseCue(std::string const& line, std::string const& place) {
  json const cue = json::parse(line, nullptr, false);
  bool const timed = cue.is_object() && cue.contains("end_ms");
  bool const good = cue.is_object() && cue.contains("pts_ms") && IsTime(cue["pts_ms"]) &&
                    cue.contains("text") && cue["text"].is_string();
  if (!good || (timed && !IsTime(cue["end_ms"])))
    throw Error(kUnusable, place + ": not of the form {\"pts_ms\": NUMBER, \"text\": TEXT}");
  return {ToNs(cue["pts_ms"]), timed ? ToNs(cue["end_ms"]) : -1, cue["text"].get<std::string>()};
}

static std::vector<Cue> ParseLines(std::string const& path, std::string const& content) {
  std::vector<Cue> cues;
  std::istringstream lines(content);
  std::string line;
  for (unsigned number = 1; std::getline(lines, line); ++number)
    if (line.find_first_not_of(" \t\r") != line.npos)
      cues.push_back(ParseCue(line, path + ", line " + std::to_string(number)));
  return cues;
}

static std::string ReadText(std::string const& path, std::string const& encoding) {
  std::ifstream file(path, std::ios::binary);
  std::error_code none;
  bool const folder = std::filesystem::is_directory(path, none);
  if (!file || folder)
    throw Error(kIo, path + ": " + (folder ? "is a directory" : std::strerror(errno)));
  std::string const bytes{std::istreambuf_iterator<char>(file), {}};
  if (file.bad()) throw Error(kIo, path + ": cannot be read");
  return ToUtf8(bytes, encoding, path);
}

CueFile::CueFile(std::string const& path, InputOptions const& options)
    : _path(path), _asSrt(options.textAsSrt), _wanted(options.text) {
  std::string const content = ReadText(path, options.textEncoding);
  unsigned damaged = 0;
  std::vector<Cue> cues =
      IsJsonLines(path) ? ParseLines(path, content) : ParseSubtitles(path, content, damaged);
  if (damaged != 0) _findings.push_back(path + ": left out: " + Quantity(damaged, "damaged text"));
  if (cues.empty()) throw Error(kUnusable, path + ": contains no text");
  Chosen(options.choices, {{InputTrack::kText, 0, 0, ""}}, path);
  if (!options.text) return;

  std::stable_sort(cues.begin(), cues.end(),
                   [](Cue const& a, Cue const& b) { return a.time_ns < b.time_ns; });
  if (!_asSrt &&
      std::any_of(cues.begin(), cues.end(), [](Cue const& cue) { return cue.end_ns >= 0; }))
    _notes.push_back(path +
                     ": the end times of texts are not stored (--text-form srt stores them)");
  _cues = std::move(cues);
}

void CueFile::Begin(Timeline& timeline, EpochStart const& start) {
  _tracks.clear();
  _cut_ns.reset();
  if (_shift_ns && start.placed) DropBefore(start.session_ns - *_shift_ns);
  if (!_wanted || !start.texts || (_asSrt && _shift_ns)) return;
  bool const placed = start.placed && _shift_ns;
  _clock = {placed ? start.session_ns - *_shift_ns : 0, true};
  if (!_shift_ns) _shift_ns = start.session_ns;
  auto track = std::make_unique<TextTrack>(_path, nullptr, timeline, _clock, false);
  if (_asSrt) track->StoreAsSrt();
  for (Cue const& cue : _cues) track->Add(cue);
  track->End();
  _tracks.push_back(std::move(track));
}

Notices CueFile::Findings() const {
  Notices findings = _findings;
  if (_skipped != 0) findings.push_back(SkippedTexts(_path, _skipped));
  return findings;
}

// Drops texts that were recorded, and those of times without a video.
void CueFile::DropBefore(std::int64_t time_ns) {
  auto const from = [this](std::int64_t begin_ns) {
    return std::find_if(_cues.begin(), _cues.end(),
                        [=](Cue const& cue) { return cue.time_ns >= begin_ns; });
  };
  auto const first = from(time_ns);
  _skipped += static_cast<unsigned>(first - std::min(from(_done_ns), first));
  _cues.erase(_cues.begin(), first);
}

void CueFile::CutAt(std::int64_t session_ns) {
  _cut_ns = session_ns;
  std::int64_t const from_ns = session_ns - _shift_ns.value_or(0);
  if (!_tracks.empty()) _done_ns = from_ns;
  for (auto const& track : _tracks) static_cast<TextTrack&>(*track).DropFrom(from_ns);
}

}  // namespace kestro::tool
