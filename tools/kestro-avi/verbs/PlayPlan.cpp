#include "verbs/PlayPlan.h"

#include <algorithm>

#include "cli/Console.h"
#include "cli/Errors.h"
#include "cli/Text.h"

namespace kestro::tool {

using Mode = PlayOptions::Mode;

// The demuxer does not check the index itself.
void PlayPlan::CheckIndex(PlayOptions const& options, avi::AviFile const& avi) {
  auto const refuse = [&options](std::string const& why) {
    throw Error(kUnusable, options.file + ": " + why);
  };
  std::string const at = " at offset " + std::to_string(avi.IndexChunk().offset);
  if (avi.IndexPlace() == avi::AviFile::Index::kNone) {
    base::int64 end = avi.Size();
    for (avi::Chunk const& chunk : avi.Tree())
      if (avi::CodeText(chunk.type) == "movi") end = std::min(end, chunk.end);
    refuse(
        "no index (idx1) at offset " + std::to_string(end) + ", after the data: " +
        (avi.CutOff() ? "the recording was cut off before it was closed" : "it was not written"));
  }
  if (avi.IndexBase() > 0)
    refuse(
        "the offsets in the index" + at + " are relative to the movi list at offset " +
        std::to_string(avi.IndexBase() - 8) +
        ", but the demuxer needs offsets from the beginning of the file; \"extract\" can read it");
  if (avi.IndexBase() < 0)
    refuse(
        "the index" + at +
        (avi.IndexChunk().size < 16 ? " is empty" : ": its first entry does not point to a chunk"));
}

static std::string WhyNotPlayed(avi::AviTrack const& track) {
  if (track.type == "text") return "the demuxer does not play text (\"extract\" reads it)";
  if (track.codec == "mjpeg") return "the demuxer does not play motion JPEG (\"extract\" reads it)";
  return track.codec == "aac" ? "the demuxer does not play AAC" : "the demuxer does not support it";
}

std::string PlayPlan::Name(std::size_t track) const {
  avi::AviTrack const& info = _avi.Tracks()[track];
  return "track " + std::to_string(track) + " (" + info.type + ", handler \"" + info.handler +
         "\")";
}

PlayPlan::PlayPlan(PlayOptions const& options, avi::AviFile const& avi, Player& player, bool report)
    : _options(options), _avi(avi) {
  std::vector<std::size_t> const videos = player.Videos();
  _tracks = player.Published();
  FindSkipped(videos, report);
  for (auto const& [track, source] : player.PacketSources())
    if (source != track)
      throw Error(kUnusable, options.file + ": " + Name(source) +
                                 " is unknown to the demuxer, which would mix up its packets with "
                                 "those of the tracks after it");
  if (_tracks.empty() && videos.empty())
    throw Error(kUnusable, options.file + ": no track that the demuxer supports");
  if (options.video >= std::max<std::size_t>(videos.size(), 1)) {
    std::string others;
    for (std::string const& note : _notes)
      if (note.find("(video, ") != note.npos) others += "; " + note;
    throw Error(kUsage, "--video: " + options.file + " has " +
                            Quantity(videos.size(), "video track") + " that can be played" +
                            others);
  }
  ChooseLeader();
  if (options.mode != Mode::kNormal && !_hasLeader)
    throw Error(kUsage, "--mode " + options.modeName + ": " + options.file + " has no such track");
}

void PlayPlan::FindSkipped(std::vector<std::size_t> const& videos, bool report) {
  auto const has = [](std::vector<std::size_t> const& list, std::size_t track) {
    return std::find(list.begin(), list.end(), track) != list.end();
  };
  for (std::size_t i = 0; i < _avi.Tracks().size(); ++i)
    if (!has(_tracks, i) && !has(videos, i)) {
      _notes.push_back(Name(i) + " is not played: " + WhyNotPlayed(_avi.Tracks()[i]));
      if (report) ReportNote(_options.file + ": " + _notes.back());
    }
}

void PlayPlan::ChooseLeader() {
  for (std::size_t i = 0; i < _tracks.size() && !_hasLeader; ++i) {
    avi::AviTrack const& track = _avi.Tracks()[_tracks[i]];
    if ((track.type == "video") == (_options.mode == Mode::kAudio)) continue;
    _hasLeader = true;
    _leader = i;
    _length_ms = track.duration_ms;
  }
}

bool PlayPlan::Plays(std::size_t track) const {
  return std::find(_tracks.begin(), _tracks.end(), track) != _tracks.end();
}

std::int64_t PlayPlan::Expected_ms() const {
  if (!_options.seeks_ms.empty()) return 0;
  bool const back = _options.mode == Mode::kBack;
  std::int64_t const from = _options.from_ms >= 0 ? _options.from_ms : back ? _length_ms : 0;
  std::int64_t const to = _options.to_ms >= 0 ? _options.to_ms : back ? 0 : _length_ms;
  return std::max<std::int64_t>(0, back ? from - to : std::min(to, _length_ms) - from);
}

}  // namespace kestro::tool
