#include "PlayVerb.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "Plugin.h"
#include "Suggest.h"
#include "Text.h"
#include "base/IClass.h"
#include "verify/FlaggedFrames.h"

namespace kestro::tool {

static char const* const kModes[] = {"normal", "fast", "back", "video", "audio"};  // as PlayMode

void PlayVerb::AddTo(CLI::App& app) {
  app.add_option("FILE", _file, "An AVI file")->required()->type_name("");
  app.add_option("--mode", _mode, "normal; fast, back: key frames only; video, audio: one alone")
      ->type_name("MODE")
      ->check(OneOf({std::begin(kModes), std::end(kModes)}));
  app.add_option("--from", _from, "Begin with the key frame at or before this time")
      ->type_name("T");
  app.add_option("--to", _to, "Stop behind this time (with --mode back: in front of it)")
      ->type_name("T");
  app.add_option("--video", _video, "The video track to play, counted among video tracks from 0")
      ->type_name("N");
  app.add_option("--seek", _seekTexts, "Go there after some packets; once for each place to go to")
      ->type_name("T")
      ->take_all()
      ->expected(1)
      ->allow_extra_args(false);
  app.add_option("--every", _every, "How many packets come before each seek (1)")
      ->type_name("N")
      ->check(CLI::Range(1u, 1u << 30));
  app.add_flag("--json", _json, "Write one JSON object a line");
  app.add_flag("--realtime", _realtime, "Pace by the packets' times");
  app.add_option("--preload", _preloadText,
                 "Read through a cache that keeps this much of the start")
      ->type_name("BYTES");
  _progress.AddTo(app);
  app.add_option("--plugin", _plugin, "The plug-in, or its folder")->type_name("PATH");
  app.footer(
      "Examples:\n"
      "  kestro-avi play out.avi\n"
      "  kestro-avi play --mode back --from 1:30 --to 1:00 out.avi\n"
      "  kestro-avi play --realtime --preload 8M /mnt/share/out.avi\n"
      "  kestro-avi play --json out.avi | jq 'select(.key) | .pts_ms'\n\n"
      "Times are seconds or [h:]m:s. At the end of the stream the next seek comes early.");
}

void PlayVerb::Check() {
  auto const ms = [](char const* option, std::string const& text) {
    return ParseTime_ns(option, text) / 1000000;
  };
  if (!_preloadText.empty()) _preload = static_cast<int64>(ParseSize("--preload", _preloadText));
  if (!_from.empty()) _from_ms = ms("--from", _from);
  if (!_to.empty()) _to_ms = ms("--to", _to);
  for (std::string const& text : _seekTexts) _seeks_ms.push_back(ms("--seek", text));
  auto const mode = std::find(std::begin(kModes), std::end(kModes), _mode);
  _playMode = static_cast<PlayMode>(mode - std::begin(kModes));
}

// The demuxer takes the index as it is.
void PlayVerb::CheckIndex(avi::AviFile const& avi) const {
  auto const refuse = [this](std::string const& why) {
    throw Error(kUnusable, _file + ": " + why);
  };
  std::string const at = " at offset " + std::to_string(avi.IndexChunk().offset);
  if (avi.IndexPlace() == avi::AviFile::Index::kNone) {
    int64 end = avi.Size();
    for (avi::Chunk const& chunk : avi.Tree())
      if (avi::CodeText(chunk.type) == "movi") end = std::min(end, chunk.end);
    refuse(
        "no index (idx1) at offset " + std::to_string(end) + ", behind the data: " +
        (avi.CutOff() ? "the recording was cut off before it was closed" : "its writer made none"));
  }
  if (avi.IndexBase() > 0)
    refuse("the offsets in the index" + at + " count from the movi list at offset " +
           std::to_string(avi.IndexBase() - 8) +
           ", as other writers do it, and the demuxer counts from the beginning of the file; "
           "\"extract\" can read it");
  if (avi.IndexBase() < 0)
    refuse(
        "the index" + at +
        (avi.IndexChunk().size < 16 ? " is empty" : ": its first entry does not lead to a chunk"));
}

// The class of the stream that the demuxer makes of a track, by the registry, as it does; null when
// it makes none.
static base::IClass* StreamClass(avi::AviTrack const& track) {
  std::string name = track.handler;
  if (name == "WAVE" || name == "wave") name = "PCM";
  if (name == "txt" || name == "TXT" || name.empty() || name.find('-') != std::string::npos)
    return nullptr;
  return base::IClass::Find(("avi-stream-" + name).c_str(), false);
}

// Whether streams of a class have no media: the demuxer counts them, but plays none.
static bool Silent(base::IClass const* stream) {
  return stream == base::IClass::Find("avi-stream-jpeg", false) ||
         stream == base::IClass::Find("avi-stream-mp4a", false);
}

static std::string WhyNot(avi::AviTrack const& track) {
  if (track.type == "text") return "the demuxer plays no text (\"extract\" reads it)";
  if (track.codec == "mjpeg") return "the demuxer plays no motion JPEG (\"extract\" reads it)";
  return track.codec == "aac" ? "the demuxer plays no AAC" : "the demuxer does not know it";
}

// The tracks that the demuxer will publish: all sound and the chosen video, in the file's order.
void PlayVerb::ChooseTracks(avi::AviFile const& avi) {
  std::string hiding, others;
  unsigned videos = 0;
  bool leads = false;
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i) {
    avi::AviTrack const& track = avi.Tracks()[i];
    bool const video = track.type == "video";
    std::string const name =
        "track " + std::to_string(i) + " (" + track.type + ", handler \"" + track.handler + "\")";
    base::IClass const* const stream = StreamClass(track);
    if (stream == nullptr || Silent(stream)) {
      std::string const left = name + " is left out: " + WhyNot(track);
      Report("note: " + _file + ": " + left);
      if (video) others += "; " + left;
      if (hiding.empty() && stream == nullptr) hiding = name;
      continue;
    }
    if (!hiding.empty())
      throw Error(kUnusable, _file + ": " + hiding +
                                 " is unknown to the demuxer, which would take " +
                                 "its packets for those of the tracks behind it");
    if (video ? videos++ != _video : track.type != "audio") continue;
    bool const wanted = video != (_playMode == PlayMode::kAudio);
    if (wanted && !leads) {
      _leader = _tracks.size();
      _length_ms = track.duration_ms;
    }
    leads |= wanted;
    _tracks.push_back(i);
  }
  if (_tracks.empty() && videos == 0)
    throw Error(kUnusable, _file + ": no track that the demuxer knows");
  bool const asked = _playMode != PlayMode::kNormal;
  if (_video >= std::max(videos, 1u))
    throw Error(kUsage, "--video: " + _file + " has " + Quantity(videos, "video track") +
                            " that can be played" + others);
  if (asked && !leads) throw Error(kUsage, "--mode " + _mode + ": " + _file + " has no such track");
}

// Whether the demuxer can tell key frames.
void PlayVerb::CheckKeys(avi::AviFile& avi) {
  if (_playMode != PlayMode::kFast && _playMode != PlayMode::kBack) return;
  for (avi::IndexEntry const& entry : FlaggedFrames(avi)) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (std::find(_tracks.begin(), _tracks.end(), track) != _tracks.end())
      Warn("the index flags every frame of track " + std::to_string(track) +
           ": the demuxer takes all of them for key frames (\"repair\" puts it right)");
  }
}

void PlayVerb::Position(Player& player) {
  auto& demuxer = player.Demuxer();
  demuxer.PlayModeSwitch(_playMode);
  if (_from_ms >= 0)
    _goTo_ms = _from_ms;
  else if (_playMode == PlayMode::kBack)
    _goTo_ms = std::max(demuxer.Duration(), _length_ms);
}

Player::Event PlayVerb::Next(Player& player, Delivered& packet) {
  Player::Event const event = _goTo_ms ? Go(player, *_goTo_ms) : Player::kPacket;
  _goTo_ms.reset();
  return event == Player::kFailed || event == Player::kInterrupted ? event : player.Next(packet);
}

// The key frame at or before a time comes next. Back play would step over it: two frames are passed
// first.
Player::Event PlayVerb::Go(Player& player, int64 ms) {
  auto& demuxer = player.Demuxer();
  bool const back = _playMode == PlayMode::kBack;
  if (back) demuxer.PlayModeSwitch(PlayMode::kVideo);
  demuxer.Seek(ms);
  Player::Event event = Player::kPacket;
  Delivered passed;
  for (int frames = back ? 2 : 0; frames > 0 && event == Player::kPacket; --frames)
    event = player.Next(passed);
  if (back) demuxer.PlayModeSwitch(_playMode);
  return event;
}

bool PlayVerb::Beyond(Delivered const& packet) const {
  if (_to_ms < 0 || packet.output != _leader) return false;
  return _playMode == PlayMode::kBack ? packet.pts_ms < _to_ms : packet.pts_ms > _to_ms;
}

bool PlayVerb::NextSeek() {
  if (_seeksDone == _seeks_ms.size()) return false;
  int64 const to = _seeks_ms[_seeksDone++];
  _goTo_ms = to;
  _paced = false;
  if (!_json) WriteData("seek to " + Seconds(to) + "\n");
  return true;
}

void PlayVerb::Pace(Delivered const& packet) {
  if (!_realtime) return;
  if (!_paced) {
    _begin = std::chrono::steady_clock::now();
    _origin_ms = packet.pts_ms;
    _paced = true;
  }
  SleepUntil(_begin + std::chrono::milliseconds(std::abs(packet.pts_ms - _origin_ms)));
}

void PlayVerb::Print(Delivered const& packet) const {
  auto const track = _tracks[packet.output];
  if (_json) {
    WriteData(nlohmann::ordered_json{{"track", track},
                                     {"seq", packet.seq},
                                     {"pts_ms", packet.pts_ms},
                                     {"duration_ms", packet.duration_ms},
                                     {"size", packet.size},
                                     {"key", packet.key},
                                     {"eos", packet.eos}}
                  .dump() +
              "\n");
    return;
  }
  char line[128];
  std::snprintf(line, sizeof line, "%5zu %7u %12.3f %9.3f %9d%s%s\n", track, packet.seq,
                static_cast<double>(packet.pts_ms) / 1000,
                static_cast<double>(packet.duration_ms) / 1000, packet.size,
                packet.key   ? "  key"
                : packet.eos ? "     "
                             : "",
                packet.eos ? "  eos" : "");
  WriteData(line);
}

// The demuxer trusts the index; this looks at the chunk that a packet came from.
std::string PlayVerb::Fault(avi::AviFile& avi, Delivered const& packet) const {
  avi::Chunk chunk;
  int64 const at = packet.offset - 8;
  auto const track = static_cast<int>(_tracks[packet.output]);
  std::string const where = "packet " + std::to_string(packet.seq) + " of track " +
                            std::to_string(track) + ": the chunk at offset " + std::to_string(at);
  if (packet.size == 0) return "";  // not known where it was read
  if (!avi.Reader().Header(at, avi.Size(), chunk) || !avi::IsDataCode(chunk.id) ||
      avi::TrackOfCode(chunk.id) != track)
    return where + " is not one of this track";
  if (chunk.size != packet.size)
    return where + " has " + std::to_string(chunk.size) + " bytes, " + std::to_string(packet.size) +
           " were delivered";
  return "";
}

// How much of the leader's time is played; 0 where seeks make that unknown.
int64 PlayVerb::Expected_ms() const {
  if (!_seeks_ms.empty()) return 0;
  bool const back = _playMode == PlayMode::kBack;
  int64 const from = _from_ms >= 0 ? _from_ms : back ? _length_ms : 0;
  int64 const to = _to_ms >= 0 ? _to_ms : back ? 0 : _length_ms;
  return std::max<int64>(0, back ? from - to : std::min(to, _length_ms) - from);
}

void PlayVerb::Warn(std::string const& what) {
  Report("warning: " + _file + ": " + what);
  _code = kFindings;
}

int PlayVerb::List(Player& player, avi::AviFile& avi) {
  Delivered packet;
  Progress progress(_progress, "play", Progress::kTime_ms,
                    static_cast<std::uint64_t>(Expected_ms()));
  int64 first_ms = -1;  // of the leader
  std::uint64_t packets = 0;
  unsigned sinceSeek = 0;
  if (!_json) WriteData("track     seq          pts  duration      size  flags\n");
  for (;;) {
    Player::Event const event = Next(player, packet);
    if (event == Player::kInterrupted) return kInterrupted;
    if (event == Player::kFailed) {
      Report("error: " + _file + ": after " + Quantity(packets, "packet") +
             ": reading failed at offset " + std::to_string(player.FailedAt()) +
             (player.FailedAt() > INT32_MAX ? " (the demuxer reads the first 2 GiB)" : ""));
      return kFindings;
    }
    if (event == Player::kEnd) {
      if (!NextSeek()) {
        if (avi.Parts() > 1)
          Warn("has " + std::to_string(avi.Parts()) +
               " RIFF parts; the demuxer plays the first (\"extract\" reads all)");
        break;
      }
      sinceSeek = 0;
      continue;
    }
    if (Beyond(packet)) break;
    Pace(packet);
    if (Interrupted()) return kInterrupted;
    Print(packet);
    if (packet.output == _leader) {
      if (first_ms < 0) first_ms = packet.pts_ms;
      progress.At(static_cast<std::uint64_t>(std::abs(packet.pts_ms - first_ms)));
    }
    ++packets;
    if (std::string const fault = Fault(avi, packet); !fault.empty()) Warn(fault);
    if (++sinceSeek >= _every && NextSeek()) sinceSeek = 0;
  }
  progress.End();
  if (!_json) Report(_file + ": " + Quantity(packets, "packet"));
  return _code;
}

int PlayVerb::Run() {
  Check();
  avi::AviFile avi(_file);
  CheckIndex(avi);
  LoadAviPlugin(_plugin);
  CatchSignals();
  for (std::string const& note : avi.Notes()) Report("note: " + _file + ": " + note);
  ChooseTracks(avi);
  Player player(_file, _tracks.size(), _video, _preload);
  for (std::size_t i = 0; i < _tracks.size(); ++i)
    if (auto const media = player.Media(i);
        !media || media->IsVideo() != (avi.Tracks()[_tracks[i]].type == "video"))
      throw Error(kUnusable, _file + ": the demuxer takes another track for track " +
                                 std::to_string(_tracks[i]));
  if (!player.Opened()) Warn("a part could not be read when it was opened");
  CheckKeys(avi);
  Position(player);
  return List(player, avi);
}

}  // namespace kestro::tool
