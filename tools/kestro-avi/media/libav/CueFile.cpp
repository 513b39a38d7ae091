#include "media/libav/CueFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/Errors.h"

namespace kestro::tool {

using nlohmann::json;

static constexpr double kLongest_ms = 1e12;

bool CueFile::IsCueFile(std::string const& path) {
  auto const extension = std::filesystem::path(path).extension();
  return extension == ".jsonl" || extension == ".ndjson" || extension == ".json";
}

static std::pair<std::int64_t, std::string> ParseCue(std::string const& line,
                                                     std::string const& place) {
  json const cue = json::parse(line, nullptr, false);
  bool const good = cue.is_object() && cue.contains("pts_ms") && cue["pts_ms"].is_number() &&
                    cue.contains("text") && cue["text"].is_string();
  if (!good || std::abs(cue["pts_ms"].get<double>()) > kLongest_ms)
    throw Error(kUnusable, place + ": not of the form {\"pts_ms\": NUMBER, \"text\": TEXT}");
  return {std::llround(cue["pts_ms"].get<double>() * 1e6), cue["text"].get<std::string>()};
}

CueFile::CueFile(std::string const& path, InputOptions const& options, Timeline const& timeline) {
  std::ifstream file(path, std::ios::binary);
  std::error_code none;
  bool const folder = std::filesystem::is_directory(path, none);
  if (!file || folder)
    throw Error(kIo, path + ": " + (folder ? "is a directory" : std::strerror(errno)));
  std::vector<std::pair<std::int64_t, std::string>> cues;
  std::string line;
  for (unsigned number = 1; std::getline(file, line); ++number)
    if (line.find_first_not_of(" \t\r") != line.npos)
      cues.push_back(ParseCue(line, path + ", line " + std::to_string(number)));
  if (file.bad()) throw Error(kIo, path + ": cannot be read");
  if (cues.empty()) throw Error(kUnusable, path + ": contains no text");
  if (!options.text) return;

  std::stable_sort(cues.begin(), cues.end(),
                   [](auto const& a, auto const& b) { return a.first < b.first; });
  auto track = std::make_unique<TextTrack>(path, nullptr, timeline, _clock, true);
  for (auto& [time_ns, text] : cues) track->Add(time_ns, std::move(text));
  track->End();
  _tracks.push_back(std::move(track));
}

}  // namespace kestro::tool
